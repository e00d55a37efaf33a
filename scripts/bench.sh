#!/usr/bin/env bash
# The timing benchmark: one table of the program's timing against its
# targets, with the machine's own baseline beside it. Without a display it
# runs on private Xvfb servers. Sound goes to a private PulseAudio null sink,
# which is paced in real time like a sound card (scripts/pulse-sink.sh); where
# none can be started, to an ALSA file device.
#   1. build/ixmod_bench: schedule, display, triggers, key path;
#   2. build/ixmod_bench_session: the whole program with a participant
#      pressing keys: reaction times, clock drift, start-up;
#   3. scripts/bench-sound.sh: tone onsets in the recorded output.
set -u
cd "$(dirname "$0")/.."
repo=$(pwd)
. scripts/pulse-sink.sh
run_start "ixmod timing benchmark"
sound_output "$work"
on_display build/ixmod_bench "-log=$work/bench.log" "-lpt1-device=$work/lpt1" "$@" 2>>"$work/stderr"
on_display build/ixmod_bench_session 2>>"$work/stderr"
pulse_stop
on_display scripts/bench-sound.sh 2>>"$work/stderr"
echo "benchmark time: $(( $(date +%s) - started )) s"
[ -n "${IXMOD_BENCH_STDERR:-}" ] && cat "$work/stderr"
exit 0
