#!/usr/bin/env bash
# The long run (make soak, not part of make test): a session of at least 30
# minutes with a scripted participant, then short sessions killed with
# SIGKILL at random moments and their files checked. Runs on a private Xvfb
# server unless a display is there; sound goes to a private PulseAudio null
# sink as in the timing benchmark, or to an ALSA file device.
#   SOAK_MINUTES (30) - length of the long session
#   SOAK_KILLS (20)   - number of killed sessions
set -u
cd "$(dirname "$0")/.."
repo=$(pwd)
. scripts/pulse-sink.sh
work=$(mktemp -d)
trap 'pulse_stop; rm -rf "$work"' EXIT
trap 'exit 1' INT TERM

on_display() {
  if [ -n "${DISPLAY:-}" ] && xdpyinfo >/dev/null 2>&1; then
    "$@"
  else
    "$repo/scripts/xvfb-run.sh" "$@"
  fi
}

started=$(date +%s)
echo "ixmod soak, $(nproc) cores, $(uname -sr)"
if pulse_start "$work" 44100; then
  echo "sound output: a private PulseAudio null sink (paced)"
else
  printf 'pcm.!default { type file slave.pcm "null" file "%s/sound.raw" format "raw" }\n' "$work" >"$work/.asoundrc"
  export HOME="$work"
  echo "sound output: an ALSA file device (no sound server could be started; not paced)"
fi
minutes=${SOAK_MINUTES:-30}
kills=${SOAK_KILLS:-20}
[ "$minutes" -gt 0 ] && on_display build/ixmod_soak "-minutes=$minutes" "$@" 2>>"$work/stderr"
[ "$kills" -gt 0 ] && on_display build/ixmod_soak "-kills=$kills" 2>>"$work/stderr"
echo "soak time: $(( $(date +%s) - started )) s"
[ -n "${IXMOD_SOAK_STDERR:-}" ] && cat "$work/stderr"
exit 0
