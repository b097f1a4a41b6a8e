#!/usr/bin/env bash
# The quick start: installs only what building and running the tool needs, builds the tool, the
# plug-in and the tables alone (build/quick: no tests, benchmarks, fuzzers or front ends), runs the
# smoke program (the plug-in loaded the way a host loads it and asked who it is and what it
# supports), then renders the default flare onto the sample frame and says where the picture is.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-build-deps.sh
cmake --preset quick >/dev/null
cmake --build --preset quick
build/quick/tools/vellux-smoke build/quick/Vellux.so
output=build/quick/quickstart-flare.png
build/quick/tools/vellux render -i docs/sample-frame.png -o "$output"
echo
echo "The default flare on docs/sample-frame.png: $(realpath "$output")"
