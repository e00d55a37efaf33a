#!/usr/bin/env bash
# Runs the timing benchmark; without a display on a private Xvfb server.
# Sound goes to an ALSA file device in a scratch HOME.
set -u
cd "$(dirname "$0")/.."
home=$(mktemp -d)
trap 'rm -rf "$home"' EXIT
printf 'pcm.!default { type file slave.pcm "null" file "%s/sound.raw" format "raw" }\n' "$home" > "$home/.asoundrc"
cmd=(env HOME="$home" build/ixmod_bench "-log=$home/bench.log" "-lpt1-device=$home/lpt1" "$@")
if [ -n "${DISPLAY:-}" ] && xdpyinfo >/dev/null 2>&1; then
  "${cmd[@]}"
else
  scripts/xvfb-run.sh "${cmd[@]}"
fi
