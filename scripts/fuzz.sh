#!/usr/bin/env bash
# Runs every fuzz target of build-fuzz for FUZZ_SECONDS (default 60) each,
# as many at once as there are cores. Each target starts from its seed
# corpus in tests/fuzz/corpus (the readers of whole files also from
# examples/) and keeps what it finds new in
# build-fuzz/corpus; a crash, leak, hang (10 s) or memory blow-up (2 GB) is
# saved in build-fuzz/findings/<target>/ and makes the run fail. Prints one
# row per target: executions, executions per second, coverage, findings.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${FUZZ_SECONDS:-60}
jobs=${FUZZ_JOBS:-$(nproc 2>/dev/null || echo 2)}
out=build-fuzz/fuzz-run
rm -rf "$out"
mkdir -p "$out"

targets=()
for bin in build-fuzz/tests/fuzz/fuzz_*; do targets+=("$(basename "$bin" | sed 's/^fuzz_//')"); done
[ ${#targets[@]} -gt 0 ] || { echo "no fuzz targets in build-fuzz/tests/fuzz" >&2; exit 1; }

run_one() {
  local t=$1
  local corpus=build-fuzz/corpus/$t findings=build-fuzz/findings/$t rc=0 seeds=(tests/fuzz/corpus/$t)
  # The readers of whole files also start from the example files.
  case $t in stimfile | config | dict | filelist) seeds+=(examples) ;; esac
  mkdir -p "$corpus" "$findings"
  # The scratch directories of the targets go with the run.
  TMPDIR="$PWD/$out" timeout $((seconds + 120)) "build-fuzz/tests/fuzz/fuzz_$t" "$corpus" "${seeds[@]}" \
    -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -max_len=16384 -print_final_stats=1 \
    -artifact_prefix="$findings/" >"$out/$t.log" 2>&1 || rc=$?
  echo "$rc" >"$out/$t.rc"
}

running=0
for t in "${targets[@]}"; do
  run_one "$t" &
  running=$((running + 1))
  if [ "$running" -ge "$jobs" ]; then
    wait -n || true
    running=$((running - 1))
  fi
done
wait || true

printf '%-10s %8s %10s %8s %6s %8s  %s\n' target seconds executions exec/s cov corpus findings
failed=0
for t in "${targets[@]}"; do
  log=$out/$t.log
  stat() { sed -n "s/^stat::$1: *//p" "$log" | tail -1 || true; }
  cov=$(grep -o 'cov: [0-9]*' "$log" | tail -1 | cut -d' ' -f2 || true)
  corpus=$(grep -o 'corp: [0-9]*' "$log" | tail -1 | cut -d' ' -f2 || true)
  found=$(ls "build-fuzz/findings/$t" 2>/dev/null | tr '\n' ' ')
  rc=$(cat "$out/$t.rc")
  [ "$rc" -eq 0 ] && [ -z "$found" ] || failed=1
  printf '%-10s %8s %10s %8s %6s %8s  %s\n' "$t" "$seconds" "$(stat number_of_executed_units)" \
    "$(stat average_exec_per_sec)" "${cov:-?}" "${corpus:-?}" "${found:-none}$([ "$rc" -ne 0 ] && echo " (exit $rc)")"
done
if [ "$failed" -ne 0 ]; then
  echo "fuzzing found problems: see build-fuzz/findings and $out/<target>.log" >&2
  exit 1
fi
