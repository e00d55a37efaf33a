#!/usr/bin/env bash
# Sound onsets on an output paced in real time: a private PulseAudio server
# with a null sink plays what the program mixes at the sink's own pace, and
# parec records the sink's monitor. The program (build/ixmod) writes its own
# stream to ALSA's default device, which is the server (ALSA's pulse
# plugin, .asoundrc in a scratch HOME). Two runs: 200 short tones at
# irregular times, most 50-400 ms apart and some pairs 10 ms apart (the
# second starts while the first sounds), and the crossmodal example's
# blocks (its preparatory tones). build/ixmod_soundcheck finds the tones in
# the recording and compares them with the timing trace. Prints benchmark
# table rows. Needs DISPLAY (bench.sh runs it under Xvfb) and a built
# build/ixmod.
#
# IXMOD_SOUND_PERIOD_US and IXMOD_SOUND_BUFFER_US set the stream's period
# and buffer ("sound-period-us", "sound-buffer-us"; the program's defaults
# when unset). IXMOD_SOUND_KEEP=DIR keeps the recordings,
# traces and logs there.
set -u
cd "$(dirname "$0")/.."
repo=$(pwd)
. scripts/pulse-sink.sh
period=${IXMOD_SOUND_PERIOD_US:-}
rate=44100
tones=200

row() { printf '  %-44s %-65s  %-26s %s\n' "$1" "$2" "${3:-}" "${4:-}"; }

work=$(mktemp -d)
rec_pid="" run_pid=""
cleanup() {
  [ -n "${IXMOD_SOUND_KEEP:-}" ] && mkdir -p "$IXMOD_SOUND_KEEP" &&
    cp "$work"/*.raw "$work"/*.tsv "$work"/*.log "$work"/*.s "$work"/*.out "$IXMOD_SOUND_KEEP"/ 2>/dev/null
  local p alive
  for p in $run_pid $rec_pid; do kill "$p" 2>/dev/null; done
  # The program blocks SIGTERM; what still runs after a second is killed
  # (timeout's child too, by its parent's id).
  for _ in $(seq 1 20); do
    alive=""
    for p in $run_pid $rec_pid; do kill -0 "$p" 2>/dev/null && alive=1; done
    [ -z "$alive" ] && break
    sleep 0.05
  done
  if [ -n "$run_pid" ]; then
    pkill -KILL -P "$run_pid" 2>/dev/null
    kill -KILL "$run_pid" 2>/dev/null
  fi
  [ -n "$rec_pid" ] && kill -KILL "$rec_pid" 2>/dev/null
  for p in $run_pid $rec_pid; do wait "$p" 2>/dev/null; done
  pulse_stop
  rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 1' INT TERM

if ! command -v pulseaudio >/dev/null || ! command -v parec >/dev/null; then
  row "sound onset - schedule" "not measured: pulseaudio or parec is not installed"
  exit 0
fi
if [ ! -x build/ixmod ] || [ ! -x build/ixmod_soundcheck ]; then
  row "sound onset - schedule" "not measured: build/ixmod or build/ixmod_soundcheck is not built" "" "NO"
  exit 0
fi

if ! pulse_start "$work" "$rate"; then
  row "sound onset - schedule" "not measured: no paced output (the sound server did not start)"
  exit 0
fi

# A 30 ms square tone (a sharp onset) at irregular times, so that the onsets
# fall at every phase of the stream's periods; every 20th tone has a partner
# 10 ms after it.
sox -n -r "$rate" -c 1 -b 16 "$work/tone.wav" synth 0.03 square 1000 vol 0.5
awk -v n="$tones" 'BEGIN { srand(7); t = 500
  for (i = 1; i <= n; ++i) { printf "wav nummer=%d t0=%d datei=tone.wav\n", i, t; t += i % 20 == 0 ? 10 : 50 + int(rand() * 351) } }' \
  >"$work/tones.s"
# The crossmodal example without its instruction and feedback pages.
awk '/^(prep|pfeil) / || /^---/' examples/crossmodal.s | awk 'NR == 1 && /^---/ { next } { print }' |
  awk '/^---/ { if (prev ~ /^---/) next } { print; prev = $0 }' >"$work/demo.s"
printf '0\n' >"$work/t.lst"
printf 'Please release the key.\nInterrupted.\n' >"$work/en.dict"
: >"$work/t.cfg"
[ -n "$period" ] && printf 'sound-period-us = %s\n' "$period" >>"$work/t.cfg"
[ -n "${IXMOD_SOUND_BUFFER_US:-}" ] && printf 'sound-buffer-us = %s\n' "$IXMOD_SOUND_BUFFER_US" >>"$work/t.cfg"

# Plays NAME.s with the sink's monitor recorded into NAME.raw; 0 when the
# program ran to its end.
record() {
  local name=$1 status
  $pulse_rt parec -d bench.monitor --raw --format=s16le --rate=$rate --channels=2 --latency-msec=10 >"$work/$name.raw" 2>/dev/null &
  rec_pid=$!
  # A fresh null sink wakes first after its idle latency (up to 2 s) and only
  # then feeds its monitor: the program starts once the recording runs.
  for _ in $(seq 1 100); do
    [ -s "$work/$name.raw" ] && break
    sleep 0.05
  done
  if [ ! -s "$work/$name.raw" ]; then
    row "$name onset - schedule" "not measured: the sink's monitor delivered nothing to record"
    return 1
  fi
  (cd "$work" && exec timeout 120 "$repo/build/ixmod" -s=$name.s -lst=t.lst -dict=en.dict -cfg=t.cfg -log=$name.log \
    -timing=$name.tsv "-lpt1-device=$work/lpt1") >"$work/$name.out" 2>&1 &
  run_pid=$!
  wait "$run_pid"
  status=$?
  run_pid=""
  sleep 0.3  # the last tone through the server's latency
  kill -INT "$rec_pid" 2>/dev/null
  wait "$rec_pid" 2>/dev/null
  rec_pid=""
  if [ "$status" -ne 0 ] || [ ! -s "$work/$name.tsv" ]; then
    row "$name onset - schedule" "not measured: build/ixmod ended with status $status" "" "NO"
    return 1
  fi
  return 0
}

# The stream as the program's log describes it, and its underruns.
stream_rows() {
  local log=$1 label=$2 device latency underruns
  device=$(sed -n 's/^[0-9]*: sound: device //p' "$log" | head -1)
  latency=$(sed -n 's/^[0-9]*: sound: latency //p' "$log" | head -1)
  underruns=$(sed -n 's/.*sound: underrun (\([0-9]*\) so far.*/\1/p' "$log" | tail -1)
  underruns=${underruns:-0}
  row "  $label stream" "${device:-not in the log}"
  row "  $label latency" "${latency:-not in the log}"
  row "$label underruns" "$underruns" "none" "$([ "$underruns" -eq 0 ] && echo yes || echo NO)"
}

echo "sound: build/ixmod's own stream through ALSA's pulse plugin to a private PulseAudio null sink (paced), recorded from its monitor"
if record tones; then
  build/ixmod_soundcheck "$work/tones.raw" "$work/tones.tsv" $rate 2 sound
  stream_rows "$work/tones.log" sound
fi
if record demo; then
  build/ixmod_soundcheck "$work/demo.raw" "$work/demo.tsv" $rate 2 "crossmodal demo"
  stream_rows "$work/demo.log" "crossmodal demo"
fi
