clock nummer=1 t0=500 t1=6000 dauer=2560 radius=0.3 uv=clock;
cbmp nummer=2 index=0 t0=2300 t1=300 x=0.5 y=0.15 moda=1;
cwav nummer=3 index=1 t0=2800 moda=2;
---
wheel nummer=4 t0=500 t1=8000 radius=0.3 start=-1 uv=wheel;
