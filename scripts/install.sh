#!/usr/bin/env bash
# Installs Vellux for one user (or into any prefix): builds what is missing, then
#   PREFIX/bin/vellux                   the tool
#   PREFIX/lib/libvellux_*.so           the engine and host libraries
#   PREFIX/lib/vellux/Vellux.so         the plug-in
#   PREFIX/share/vellux/tables/*.rsc    the flare tables
# The tree finds its own parts wherever it is, so it may be moved or copied afterwards.
#
#   scripts/install.sh [PREFIX]          (default ~/.local)
set -euo pipefail
cd "$(dirname "$0")/.."
prefix="${1:-$HOME/.local}"
[ -f build/default/build.ninja ] || cmake --preset default >/dev/null
cmake --build --preset default --target vellux Vellux vellux_tables
cmake --install build/default --prefix "$prefix" >/dev/null
prefix="$(cd "$prefix" && pwd)"
echo "Installed into $prefix: bin/vellux, lib/vellux/Vellux.so, lib/libvellux_engine.so, share/vellux/tables"
case ":$PATH:" in
  *":$prefix/bin:"*) ;;
  *) echo "Add it to your PATH: export PATH=\"$prefix/bin:\$PATH\"" ;;
esac
