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
run_start "ixmod soak"
sound_output "$work"
minutes=${SOAK_MINUTES:-30}
kills=${SOAK_KILLS:-20}
[ "$minutes" -gt 0 ] && on_display build/ixmod_soak "-minutes=$minutes" "$@" 2>>"$work/stderr"
[ "$kills" -gt 0 ] && on_display build/ixmod_soak "-kills=$kills" 2>>"$work/stderr"
echo "soak time: $(( $(date +%s) - started )) s"
[ -n "${IXMOD_SOAK_STDERR:-}" ] && cat "$work/stderr"
exit 0
