#!/usr/bin/env bash
# The quick start builds what a first render needs and nothing more: configured as the quick
# preset configures it (in a temporary folder), its build has the tool, the smoke program, the
# plug-in and the tables, and no test, benchmark, fuzzer or front end.
#
#   tests/install/quick_preset_test.sh SOURCE_DIR
set -euo pipefail
source="$(cd "$1" && pwd)"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

# The preset's cache variables, read from the presets file, so the test follows the preset.
settings=$(python3 -c '
import json, sys
presets = json.load(open(sys.argv[1]))["configurePresets"]
quick = next(p for p in presets if p["name"] == "quick")
print(" ".join("-D%s=%s" % kv for kv in quick["cacheVariables"].items()))' "$source/CMakePresets.json")
# shellcheck disable=SC2086
cmake -S "$source" -B "$work/build" -G Ninja $settings >/dev/null
targets=$(ninja -C "$work/build" -t targets all | sed -n 's/^\([^:]*\): .*/\1/p' | xargs -n1 basename | sort -u)
for needed in vellux vellux-smoke Vellux.so Vellux.rsc double-gauss-50mm.rsc; do
    grep -qx "$needed" <<<"$targets" || fail "the quick build lacks $needed"
done
for unwanted in vellux_bench vellux_engine_tests vellux_plugin_tests _vellux vellux_flare.zip; do
    if grep -q "^$unwanted" <<<"$targets"; then fail "the quick build makes $unwanted"; fi
done
if grep -q '_fuzz$' <<<"$targets"; then fail "the quick build makes a fuzzer"; fi
echo "the quick build: $(grep -c . <<<"$targets") targets, the tool, the plug-in and the tables among them"
