back t0=0 datei=examples/film/frame008.pcx x=0.5 y=0.9
bmp nummer=1 t0=500 t1=800 datei=examples/film/frame003.pcx x=0.3 y=0.5 uv=picture;
wav nummer=2 t0=1500 datei=examples/beep.wav uv=sound;
null nummer=3 t0=2500 t1=200 kritisch=1 uv=null;
reak nummer=4 t0=3500 t1=1000 kritisch=1 minreak=150 maxreak=1500 uv=reak;
stift nummer=5 t0=4500 t1=100 index=1,3 uv=pen;
led nummer=6 t0=5000 t1=500 index=2 promille=500 uv=led;
---
clock nummer=7 t0=300 t1=3000 dauer=2000 radius=0.2 uv=clock;
cled nummer=8 index=2 t0=1300 t1=200 moda=3;
cstift nummer=9 index=1 t0=2300 t1=100 moda=4;
