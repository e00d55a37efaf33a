null nummer=1 t0=500 t1=200 kritisch=-1 uv=warm up; trigger=0
null nummer=2 t0=1000 t1=200 uv=catch trial; kritisch=0
null nummer=3 t0=1500 t1=200 kritisch=-1
---
null nummer=4 t0=200 t1=100 kritisch=-1
null nummer=5 t0=400 t1=100 kritisch=-1
