#!/usr/bin/env bash
# Installs Vellux for one user (or into any prefix): builds what is missing, then
#   PREFIX/bin/vellux                   the tool
#   PREFIX/lib/libvellux_*.so           the engine and host libraries, the tool's image module
#   PREFIX/lib/vellux/Vellux.so         the plug-in
#   PREFIX/share/vellux/tables/*.rsc    the flare tables
#   PREFIX/lib/frei0r-1/vellux.so       the frei0r filter for video hosts (linked into ~/.frei0r-1/lib
#                                       when PREFIX is ~/.local), and its Kdenlive description
# The tree finds its own parts wherever it is, so it may be moved or copied afterwards.
#
#   scripts/install.sh [PREFIX]          (default ~/.local)
set -euo pipefail
cd "$(dirname "$0")/.."
prefix="${1:-$HOME/.local}"
[ -f build/default/build.ninja ] || cmake --preset default >/dev/null
cmake --build --preset default --target vellux Vellux vellux_tables vellux_frei0r
cmake --install build/default --prefix "$prefix" >/dev/null
prefix="$(cd "$prefix" && pwd)"
echo "Installed into $prefix: bin/vellux, lib/vellux/Vellux.so, lib/libvellux_engine.so, share/vellux/tables,"
echo "  lib/frei0r-1/vellux.so (the frei0r filter) and share/kdenlive/effects/frei0r_vellux.xml"
# For a user's own prefix, the video hosts' own folders get links: frei0r hosts look in
# ~/.frei0r-1/lib, Kdenlive reads effect descriptions from ~/.local/share/kdenlive/effects.
if [ "$prefix" = "$HOME/.local" ]; then
  mkdir -p "$HOME/.frei0r-1/lib"
  ln -sf "$prefix/lib/frei0r-1/vellux.so" "$HOME/.frei0r-1/lib/vellux.so"
  echo "Linked the filter into ~/.frei0r-1/lib (ffmpeg, Kdenlive, Shotcut find it there)"
else
  echo "For video hosts: export FREI0R_PATH=\"$prefix/lib/frei0r-1\""
fi
case ":$PATH:" in
  *":$prefix/bin:"*) ;;
  *) echo "Add it to your PATH: export PATH=\"$prefix/bin:\$PATH\"" ;;
esac
