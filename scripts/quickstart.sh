#!/usr/bin/env bash
# Installs what is missing, builds the plug-in and the tools, runs the smoke program (the plug-in
# loaded the way a host loads it and asked who it is and what it supports), then renders the
# default flare onto the sample frame and says where the picture is.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake --preset default >/dev/null
cmake --build --preset default
build/default/tools/vellux-smoke build/default/Vellux.so
output=build/default/quickstart-flare.png
build/default/tools/vellux render -i docs/sample-frame.png -o "$output"
echo
echo "The default flare on docs/sample-frame.png: $(realpath "$output")"
