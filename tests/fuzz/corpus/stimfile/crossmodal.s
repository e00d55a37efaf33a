instr datei=anw.bmp
---
prep nummer=1 index=1 t0=1500 trigger=12 uv=tief;
pfeil nummer=1 index=0 t0=2500 t1=1000 kritisch=0 trigger=22 uv=anders;
prep nummer=2 index=1 t0=4500 trigger=12 uv=tief;
pfeil nummer=2 index=0 t0=5500 t1=1000 kritisch=0 trigger=22 uv=anders;
prep nummer=3 index=0 t0=7500 trigger=11 uv=hoch;
pfeil nummer=3 index=0 t0=8500 t1=1000 kritisch=1 trigger=21 uv=passt;
prep nummer=4 index=1 t0=10500 trigger=12 uv=tief;
pfeil nummer=4 index=0 t0=11500 t1=1000 kritisch=0 trigger=22 uv=anders;
---
info extra=Ende der Übung - weiter mit einer Taste.;
---
prep nummer=101 index=0 t0=1500 trigger=11 uv=hoch;
pfeil nummer=101 index=0 t0=2500 t1=1000 kritisch=1 trigger=21 uv=passt;
prep nummer=102 index=0 t0=4500 trigger=11 uv=hoch;
pfeil nummer=102 index=1 t0=5500 t1=1000 kritisch=0 trigger=22 uv=anders;
prep nummer=103 index=1 t0=7500 trigger=12 uv=tief;
pfeil nummer=103 index=0 t0=8500 t1=1000 kritisch=0 trigger=22 uv=anders;
prep nummer=104 index=0 t0=10500 trigger=11 uv=hoch;
pfeil nummer=104 index=0 t0=11500 t1=1000 kritisch=1 trigger=21 uv=passt;
prep nummer=105 index=1 t0=13500 trigger=12 uv=tief;
pfeil nummer=105 index=0 t0=14500 t1=1000 kritisch=0 trigger=22 uv=anders;
prep nummer=106 index=0 t0=16500 trigger=11 uv=hoch;
pfeil nummer=106 index=0 t0=17500 t1=1000 kritisch=1 trigger=21 uv=passt;
---
info extra=Weiter mit einer Taste.;
---
prep nummer=107 index=0 t0=1500 trigger=11 uv=hoch;
pfeil nummer=107 index=1 t0=2500 t1=1000 kritisch=0 trigger=22 uv=anders;
prep nummer=108 index=0 t0=4500 trigger=11 uv=hoch;
pfeil nummer=108 index=0 t0=5500 t1=1000 kritisch=1 trigger=21 uv=passt;
prep nummer=109 index=0 t0=7500 trigger=11 uv=hoch;
pfeil nummer=109 index=0 t0=8500 t1=1000 kritisch=1 trigger=21 uv=passt;
prep nummer=110 index=1 t0=10500 trigger=12 uv=tief;
pfeil nummer=110 index=1 t0=11500 t1=1000 kritisch=1 trigger=21 uv=passt;
prep nummer=111 index=0 t0=13500 trigger=11 uv=hoch;
pfeil nummer=111 index=0 t0=14500 t1=1000 kritisch=1 trigger=21 uv=passt;
prep nummer=112 index=1 t0=16500 trigger=12 uv=tief;
pfeil nummer=112 index=0 t0=17500 t1=1000 kritisch=0 trigger=22 uv=anders;
---
info extra=Vielen Dank.;
