#!/usr/bin/env bash
# A demo session from the examples. Without a display it runs on a private
# Xvfb server.
set -u
cd "$(dirname "$0")/.."
out=build/demo
mkdir -p "$out"
log="$out/ixmod.log"
cmd=(build/ixmod -s=examples/demo.s -lst=examples/empty.lst -cfg=examples/ixmod.cfg
     -dict=examples/en.dict -locale=en "-log=$log")
if [ -n "${DISPLAY:-}" ] && xdpyinfo >/dev/null 2>&1; then
  "${cmd[@]}"
else
  echo "no display: running on Xvfb"
  PATH="$PWD/tests/bin:$PATH" scripts/xvfb-run.sh "${cmd[@]}"
fi
status=$?
echo "exit status: $status"
echo "log: $log"
exit $status
