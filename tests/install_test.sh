#!/bin/sh
# What the package holds: installs the build into a scratch root with the
# package's prefix and compares the files with the list below.
# Usage: install_test.sh BUILD_DIR
set -eu
build=$1
root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
DESTDIR=$root cmake --install "$build" --prefix /usr >/dev/null
fail=0
for f in usr/bin/ixmod usr/sbin/ixmod-lab-setup usr/share/man/man1/ixmod.1.gz \
         usr/share/doc/ixmod/README.md usr/share/doc/ixmod/platform.md \
         usr/share/ixmod/examples/crossmodal.s usr/share/ixmod/examples/crossmodal.lst \
         usr/share/ixmod/examples/en.dict usr/share/ixmod/examples/de.dict \
         usr/share/ixmod/examples/ixmod.cfg usr/share/ixmod/examples/empty.lst \
         usr/share/ixmod/examples/anwde.bmp usr/share/ixmod/examples/anwen.bmp \
         usr/share/ixmod/examples/film/film.txt; do
  [ -f "$root/$f" ] || { echo "missing: /$f"; fail=1; }
done
# Nothing outside /usr, and no test or tool programs.
extra=$(cd "$root" && find . -type f | grep -v '^\./usr/' || true)
[ -z "$extra" ] || { echo "outside /usr: $extra"; fail=1; }
tools=$(ls "$root/usr/bin" | grep -vx ixmod || true)
[ -z "$tools" ] || { echo "more programs than ixmod: $tools"; fail=1; }
# The program keeps its appended resources; the example's file list names
# installed files.
cmp -s "$root/usr/bin/ixmod" "$build/ixmod" || { echo "installed ixmod differs from the built one"; fail=1; }
[ -x "$root/usr/sbin/ixmod-lab-setup" ] || { echo "ixmod-lab-setup is not executable"; fail=1; }
gzip -t "$root/usr/share/man/man1/ixmod.1.gz" || fail=1
sed -n '3p;5p' "$root/usr/share/ixmod/examples/crossmodal.lst" | while read -r p; do
  case $p in
    /usr/share/ixmod/examples/*) [ -f "$root$p" ] || { echo "listed, not installed: $p"; exit 1; } ;;
    *) echo "not an installed path: $p"; exit 1 ;;
  esac
done || fail=1
exit $fail
