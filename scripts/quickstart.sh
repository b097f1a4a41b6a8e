#!/usr/bin/env bash
# Installs what is missing, builds the plug-in and the tools, and runs the smoke program: the
# plug-in is loaded the way a host loads it and asked who it is and what it supports.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake --preset default >/dev/null
cmake --build --preset default
build/default/tools/vellux-smoke build/default/Vellux.so
