#!/usr/bin/env bash
# Builds the libFuzzer targets with clang and runs each for a bounded time (default 60 s) from
# its checked-in seeds. Any crash, sanitizer report or failed invariant fails the run.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
seconds=${1:-60}
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz
for target in resource_file flare_table scene dialog_resource prescription; do
  work=$(mktemp -d)
  cp fuzz/corpus/$target/* "$work/"
  echo "=== fuzzing $target for ${seconds}s ==="
  status=0
  (cd "$work" && "$root/build/fuzz/fuzz/${target}_fuzz" -max_total_time="$seconds" -max_len=8192 \
      -print_final_stats=1 . >"$work/log" 2>&1) || status=$?
  grep -E '^(Done [0-9]+ runs|stat::number_of_executed_units|==[0-9]+==ERROR|SUMMARY)' "$work/log" || true
  if [ "$status" -ne 0 ]; then
    tail -40 "$work/log"
    echo "fuzzing $target found a fault (exit $status)"
    exit 1
  fi
  rm -rf "$work"
done
