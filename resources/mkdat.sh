#!/bin/sh
# Builds the resource datafile from the files ixmod_resgen wrote into DIR:
# one object per line of DIR/manifest.txt ("TYPE NAME FILE"), grabbed with
# its file name kept and renamed where the object name differs.
#
# usage: mkdat.sh DAT DIR OUT.dat
set -eu
dat=$1 dir=$2 out=$3
case $out in /*) ;; *) out=$PWD/$out ;; esac
tmp=$out.tmp
log=$out.log
rm -f "$tmp" "$log"

run() {
  if ! "$dat" "$@" >>"$log" 2>&1; then
    cat "$log" >&2
    echo "mkdat.sh: $dat $* failed" >&2
    exit 1
  fi
}

cd "$dir"
while read -r type name file; do
  run -a -k -c1 -s1 -t "$type" "$tmp" "$file"
  [ "$name" = "$file" ] || run -s1 "$tmp" "$file" "NAME=$name"
done <manifest.txt
mv "$tmp" "$out"
rm -f "$log"
