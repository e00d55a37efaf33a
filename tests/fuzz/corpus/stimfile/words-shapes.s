word t0=300 t1=1200 string=Grüne#Bäume;
shape t0=1800 t1=800 shape=0 color=2 filled=2 size=2;
shape t0=2800 t1=800 shape=3 color=1 filled=0 size=2;
shape t0=3800 t1=800 shape=6 color=4 filled=3 size=2;
