#!/usr/bin/env bash
# Runs the shell blocks of the README, in order, in one shell, from the repository root, as a
# reader would after the quick start: every ```sh block, except those right after a line
# "<!-- readme-test: skip (why) -->", which are listed with their reason. Stops at the first
# command that fails, naming the block. The page's commands use the quick start's build
# (build/quick/); here they run against the build under test, $VELLUX_README_BUILD (default
# build/default), which holds the same tool and more.
#
#   tests/readme/run_readme.sh [README]
set -euo pipefail
root="$(cd "$(dirname "$0")/../.." && pwd)"
readme="${1:-$root/README.md}"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

# Each block to its own file: NNN.sh to run, NNN.skip holding the reason to skip it.
awk -v dir="$work" '
    /^<!-- readme-test: skip/ { reason = $0; sub(/^<!-- readme-test: skip \(?/, "", reason); sub(/\)? -->$/, "", reason); next }
    /^```sh$/ && !inside { inside = 1; n++; file = sprintf("%s/%03d", dir, n); line = NR
                           if (reason != "") { print reason > (file ".skip"); close(file ".skip") }
                           printf "# README line %d\n", line > (file ".sh"); reason = ""; next }
    /^```/ && inside { inside = 0; close(file ".sh"); next }
    inside { print > (file ".sh"); next }
    { if ($0 != "") reason = "" }
' "$readme"

cd "$root"
ran=0
skipped=0
script="$work/all.sh"
echo 'set -euo pipefail' > "$script"
# Now and then melt stops short of starting its consumer and waits for it for ever: a melt that
# has not ended in two minutes is stopped and run once more, saying so.
cat >> "$script" <<'EOF'
melt() {
  local status=0
  timeout 120 melt "$@" || status=$?
  [ "$status" -eq 124 ] || return "$status"
  echo "melt timed out; running it again" >&2
  timeout 120 melt "$@"
}
EOF
for block in "$work"/[0-9][0-9][0-9].sh; do
    [ -e "$block" ] || continue
    where=$(head -n 1 "$block")
    if [ -e "${block%.sh}.skip" ]; then
        echo "skipped ($where): $(cat "${block%.sh}.skip")"
        skipped=$((skipped + 1))
        continue
    fi
    # Each block announces itself, so that a failure names it.
    printf 'echo "=== %s"\n' "$where" >> "$script"
    tail -n +2 "$block" | sed "s|build/quick/|${VELLUX_README_BUILD:-build/default}/|g" >> "$script"
    ran=$((ran + 1))
done
[ "$ran" -gt 0 ] || { echo "no shell blocks found in $readme" >&2; exit 1; }
bash "$script" </dev/null   # no command may wait for a key (melt reads the terminal)
echo "README: $ran blocks ran, $skipped skipped"
