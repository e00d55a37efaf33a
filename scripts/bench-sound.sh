#!/usr/bin/env bash
# Sound onsets on an output paced in real time: a private PulseAudio server
# with a null sink plays what the program mixes at the sink's own pace, and
# parec records the sink's monitor. The program (build/ixmod) plays a short
# tone at irregular times through Allegro's ALSA driver, whose default
# device is the server (ALSA's pulse plugin, .asoundrc in a scratch HOME);
# build/ixmod_soundcheck finds the tones in the recording and compares them
# with the timing trace. Prints benchmark table rows and one line naming the
# device. Needs DISPLAY (bench.sh runs it under Xvfb) and a built build/ixmod.
#
# IXMOD_SOUND_FRAGS=FRAMESxCOUNT sets Allegro's mixing fragments
# (alsa_fragsize, alsa_numfrags); "default" leaves Allegro's own choice.
# IXMOD_SOUND_KEEP=DIR keeps the recording, trace and logs there.
set -u
cd "$(dirname "$0")/.."
repo=$(pwd)
. scripts/pulse-sink.sh
frags=${IXMOD_SOUND_FRAGS:-512x4}
rate=44100
tones=48

row() { printf '  %-44s %-65s  %-26s %s\n' "$1" "$2" "${3:-}" "${4:-}"; }

work=$(mktemp -d)
rec_pid="" run_pid=""
cleanup() {
  [ -n "${IXMOD_SOUND_KEEP:-}" ] && mkdir -p "$IXMOD_SOUND_KEEP" &&
    cp "$work"/{rec.raw,timing.tsv,t.log,t.s,pulse.log,ixmod.out} "$IXMOD_SOUND_KEEP"/ 2>/dev/null
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

if ! pulse_start "$work" "$rate" "$frags"; then
  row "sound onset - schedule" "not measured: no paced output (the sound server did not start)"
  exit 0
fi

# A 30 ms square tone (a sharp onset) and a block of tones 200 to 400 ms
# apart, irregular so that the onsets fall at every phase of the fragments.
sox -n -r "$rate" -c 1 -b 16 "$work/tone.wav" synth 0.03 square 1000 vol 0.5
awk -v n="$tones" 'BEGIN { srand(7); t = 500
  for (i = 1; i <= n; ++i) { printf "wav nummer=%d t0=%d datei=tone.wav\n", i, t; t += 200 + int(rand() * 201) } }' \
  >"$work/t.s"
printf '0\n' >"$work/t.lst"
printf 'Please release the key.\nInterrupted.\n' >"$work/en.dict"
: >"$work/t.cfg"

parec -d bench.monitor --raw --format=s16le --rate=$rate --channels=2 --latency-msec=10 >"$work/rec.raw" 2>/dev/null &
rec_pid=$!
# A fresh null sink wakes first after its idle latency (up to 2 s) and only
# then feeds its monitor: the program starts once the recording runs.
for _ in $(seq 1 100); do
  [ -s "$work/rec.raw" ] && break
  sleep 0.05
done
if [ ! -s "$work/rec.raw" ]; then
  row "sound onset - schedule" "not measured: the sink's monitor delivered nothing to record"
  exit 0
fi
(cd "$work" && exec timeout 60 "$repo/build/ixmod" -s=t.s -lst=t.lst -dict=en.dict -cfg=t.cfg -log=t.log \
  -timing=timing.tsv "-lpt1-device=$work/lpt1") >"$work/ixmod.out" 2>&1 &
run_pid=$!
wait "$run_pid"
status=$?
run_pid=""
sleep 0.3  # the last tone through the server's latency
kill -INT "$rec_pid" 2>/dev/null
wait "$rec_pid" 2>/dev/null
rec_pid=""
if [ "$status" -ne 0 ] || [ ! -s "$work/timing.tsv" ]; then
  row "sound onset - schedule" "not measured: build/ixmod ended with status $status" "" "NO"
  exit 0
fi

# The fragments in force, as the server saw the ALSA client ask for them:
# minreq is one fragment, tlength the whole buffer.
inforce=$(awk -v r=$rate '/Requested tlength=.*minreq=/ {
    t = $0; sub(/.*tlength=/, "", t); t += 0; m = $0; sub(/.*minreq=/, "", m); m += 0 }
  END { if (m > 0) printf "%dx%d", m * r / 1000 + 0.5, t / m + 0.5 }' "$work/pulse.log")
echo "sound: $tones tones (30 ms, 200-400 ms apart) from build/ixmod through ALSA's pulse plugin to a private PulseAudio null sink (paced), recorded from its monitor; fragments asked: $frags"
build/ixmod_soundcheck "$work/rec.raw" "$work/timing.tsv" $rate 2 "${inforce:-unknown}"
