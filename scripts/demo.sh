#!/usr/bin/env bash
# A session of the crossmodal test from the examples. With a display a person
# takes it; without one it runs on a private Xvfb server with a scripted
# participant, and the script reports what happened. What the program says
# on its terminal goes to build/demo/stderr.txt (shown when it fails).
#   IXMOD=/usr/bin/ixmod EXAMPLES=/usr/share/ixmod/examples scripts/demo.sh
# runs an installed program on its installed examples.
set -u
cd "$(dirname "$0")/.."
out=build/demo
mkdir -p "$out"
rm -f "$out/results.txt" "$out/lpt1" "$out/lpt1.trace" "$out/stderr.txt"
rm -rf "$out/report"
log="$out/ixmod.log"
ixmod=${IXMOD:-build/ixmod}
ex=${EXAMPLES:-examples}
cmd=("$ixmod" "-s=$ex/crossmodal.s" "-lst=$ex/crossmodal.lst" "-cfg=$ex/ixmod.cfg"
     "-dict=$ex/en.dict" -locale=en "-log=$log" "-timing=$out/timing.tsv" "-res=$out/results.txt"
     "-report=$out/report"
     "-lpt1-device=$PWD/$out/lpt1")
if [ -n "${DISPLAY:-}" ] && xdpyinfo >/dev/null 2>&1 && [ -z "${CI:-}" ]; then
  "${cmd[@]}" 2> "$out/stderr.txt"
  status=$?
else
  echo "no display: running on Xvfb with a scripted participant"
  home=$(mktemp -d)
  trap 'rm -rf "$home"' EXIT
  printf 'pcm.!default { type file slave.pcm "null" file "%s/sound.raw" format "raw" }\n' "$PWD/$out" \
    > "$home/.asoundrc"
  session() {
    build/ixmod_participant "$ex/crossmodal.s" 7 > "$out/participant.txt" &
    "${cmd[@]}" 2> "$out/stderr.txt"
    local s=$?
    wait
    return $s
  }
  export -f session
  export out ex
  HOME="$home" PATH="$PWD/tests/bin:$PATH" \
    scripts/xvfb-run.sh bash -c "$(declare -p cmd); $(declare -f session); session"
  status=$?
  cat "$out/participant.txt"
fi
echo "exit status: $status"
if [ "$status" -ne 0 ] && [ -s "$out/stderr.txt" ]; then
  sed 's/^/  /' "$out/stderr.txt"
fi
echo "log: $log"
echo "results lines (trial, label, reaction, reaction time): $out/results.txt"
echo "timing trace: $out/timing.tsv"
echo "session report: $out/report/ixmod-report.html (table: $out/report/ixmod-report.tsv)"
if [ -f "$out/lpt1.trace" ]; then
  # Data-register writes other than the rest levels 0 and 0xFF: one per pulse.
  pulses=$(awk '$2 == 0 && $3 != 255 && $3 != 0 { n++ } END { print n + 0 }' "$out/lpt1.trace")
  echo "trigger pulses on the simulated LPT1 (onsets and reactions): $pulses ($out/lpt1.trace)"
fi
echo "feedback pages:"
grep -E 'Block: [0-9]+ - Richtige' "$log" | sed 's/^[0-9]*: /  /'
exit $status
