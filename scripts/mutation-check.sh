#!/usr/bin/env bash
# Mutation check of the plug-in: breaks one line at a time (the mutants in scripts/mutants.txt),
# rebuilds the plug-in and the suites that exercise it, and runs them. A mutant is killed when a
# suite fails, survives when all pass, and is invalid when it does not compile (fix the list).
#
#   scripts/mutation-check.sh [build dir] [mutant file]
#
# The build dir defaults to build/default and must be configured and built already (the suites
# must pass before anything is mutated). The mutated file is always restored, also on Ctrl-C, and
# the build is brought back to the unmutated sources at the end. Runs at low priority on at most
# two jobs. MUTATION_FILTER=<text> keeps only the mutants whose line contains that text.
set -uo pipefail

root="$(cd "$(dirname "$0")/.." && pwd)"
build="${1:-build/default}"
[[ "$build" = /* ]] || build="$root/$build"
list="${2:-$root/scripts/mutants.txt}"
timeout_s="${MUTATION_TIMEOUT:-120}"

[ -f "$build/build.ninja" ] || { echo "no configured build in $build" >&2; exit 2; }
[ -f "$list" ] || { echo "no mutant list $list" >&2; exit 2; }

targets=(Vellux vellux_unit_tests vellux_flare_tests vellux_host_tests)
# The host suite's renders load the built plug-in; the rest of that suite does not involve it.
suites=("vellux_unit_tests" "vellux_flare_tests" "vellux_host_tests --gtest_filter=GoldenRenders.*:PlugInWithRealServices.*")

build_targets() { nice -n 10 cmake --build "$build" -j 2 --target "${targets[@]}" >"$log" 2>&1; }

# Runs the suites, the quickest first; stops at the first failure. Returns 0 when all pass.
run_suites() {
  local suite
  for suite in "${suites[@]}"; do
    local binary="${suite%% *}" args=""
    [ "$suite" != "$binary" ] && args="${suite#* }"
    # shellcheck disable=SC2086
    (cd "$build/tests" && nice -n 10 timeout "$timeout_s" "./$binary" --gtest_brief=1 --gtest_fail_fast $args) \
      >>"$log" 2>&1 || return 1
  done
  return 0
}

work="$(mktemp -d)"
log="$work/log"
current=""          # the file under mutation, while one is
restore() {
  if [ -n "$current" ]; then
    # A plain copy (new modification time), so that the build recompiles the original.
    cp "$work/original" "$root/$current"
    current=""
  fi
}
finish() {
  restore
  rm -rf "$work"
}
trap finish EXIT
trap 'echo "interrupted" >&2; exit 130' INT TERM

echo "Checking that the suites pass unmutated..."
if ! build_targets || ! run_suites; then
  echo "The unmutated build or suites fail; see the log below." >&2
  tail -40 "$log" >&2
  exit 2
fi

total=0 killed=0 invalid=0
survivors=() invalids=()
lineno=0
while IFS= read -r line || [ -n "$line" ]; do
  lineno=$((lineno + 1))
  [[ -z "${line// }" || "$line" = \#* ]] && continue
  [ -n "${MUTATION_FILTER:-}" ] && [[ "$line" != *"$MUTATION_FILTER"* ]] && continue
  # "\|" stands for a "|" inside a text.
  escaped="${line//\\|/$'\x01'}"
  IFS='|' read -r file original replacement what <<<"$escaped"
  original="${original//$'\x01'/|}"
  replacement="${replacement//$'\x01'/|}"
  label="$file:$lineno $what"
  path="$root/$file"
  if [ ! -f "$path" ] || [ -z "$original" ]; then
    echo "BAD LIST  $label: no such file or no text" >&2
    invalid=$((invalid + 1)); invalids+=("$label (bad entry)")
    continue
  fi
  content="$(cat "$path"; printf x)"
  content="${content%x}"
  rest="${content#*"$original"}"
  if [ "$rest" = "$content" ] || [ "${rest#*"$original"}" != "$rest" ]; then
    echo "BAD LIST  $label: the original text does not occur exactly once" >&2
    invalid=$((invalid + 1)); invalids+=("$label (not exactly once)")
    continue
  fi
  total=$((total + 1))
  cp "$path" "$work/original"
  current="$file"
  printf '%s' "${content/"$original"/"$replacement"}" >"$path"
  : >"$log"
  if ! build_targets; then
    echo "INVALID   $label (does not compile)"
    invalid=$((invalid + 1)); invalids+=("$label (does not compile)")
    total=$((total - 1))
  elif run_suites; then
    echo "SURVIVED  $label"
    survivors+=("$label")
  else
    echo "killed    $label"
    killed=$((killed + 1))
  fi
  restore
done <"$list"

echo "Restoring the build..."
: >"$log"
build_targets || { echo "rebuilding the unmutated sources failed" >&2; tail -20 "$log" >&2; }

echo
if [ "$total" -gt 0 ]; then
  percent=$(awk -v k="$killed" -v n="$total" 'BEGIN { printf "%.0f", 100 * k / n }')
else
  percent=0
fi
if [ ${#survivors[@]} -gt 0 ]; then
  echo "Survivors:"
  printf '  %s\n' "${survivors[@]}"
fi
if [ ${#invalids[@]} -gt 0 ]; then
  echo "Invalid (counted neither way; fix the list):"
  printf '  %s\n' "${invalids[@]}"
fi
echo "mutants: $killed killed of $total ($percent%)"
