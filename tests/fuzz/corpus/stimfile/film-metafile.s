fli nummer=1 t0=500 t1=2000 datei=examples/film/film.txt x=0.5 y=0.5 fix=1 blink=6 uv=film;
emf nummer=2 t0=3000 t1=1500 datei=examples/figure.emf w=0.5 h=0.25 uv=metafile;
fli nummer=3 t0=5000 t1=3000 datei=examples/film/film.txt x=0.2 y=0.5 repeat=-1 uv=film endless;
