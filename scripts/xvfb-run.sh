#!/usr/bin/env bash
# Runs a command on a private Xvfb display (1024x768, 16 bit) and always
# stops the server afterwards. Usage: xvfb-run.sh COMMAND [ARGS...]
set -u
for n in $(seq 90 250); do
  [ -e /tmp/.X$n-lock ] || [ -e /tmp/.X11-unix/X$n ] || { disp=$n; break; }
done
Xvfb ":$disp" -screen 0 1024x768x16 -nolisten tcp >/dev/null 2>&1 &
xpid=$!
trap 'kill $xpid 2>/dev/null; wait $xpid 2>/dev/null' EXIT
for _ in $(seq 1 50); do
  [ -e /tmp/.X11-unix/X$disp ] && break
  sleep 0.1
done
DISPLAY=":$disp" "$@"
