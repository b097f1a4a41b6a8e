#!/usr/bin/env bash
# Installs Vellux for one user (or into any prefix): builds what is missing, then
#   PREFIX/bin/vellux                   the tool
#   PREFIX/lib/libvellux_*.so           the engine and host libraries, the tool's image module and
#                                       the frei0r filter's image side
#   PREFIX/lib/vellux/Vellux.so         the plug-in
#   PREFIX/share/vellux/tables/*.rsc    the flare tables
#   PREFIX/lib/frei0r-1/vellux.so       the frei0r filter for video hosts (linked into ~/.frei0r-1/lib
#                                       when PREFIX is ~/.local), and its Kdenlive description
#   PREFIX/lib/gimp/2.0/plug-ins/vellux-flare/vellux-flare
#                                       the GIMP plug-in, when GIMP's SDK was there to build it (its
#                                       folder linked into the user's GIMP plug-ins folder)
# The tree finds its own parts wherever it is, so it may be moved or copied afterwards.
#
#   scripts/install.sh [PREFIX]          (default ~/.local)
set -euo pipefail
cd "$(dirname "$0")/.."
prefix="${1:-$HOME/.local}"
[ -f build/default/build.ninja ] || cmake --preset default >/dev/null
targets=(vellux Vellux vellux_tables vellux_frei0r)
cmake --build build/default --target help | grep -q '^vellux_gimp:' && targets+=(vellux_gimp)
cmake --build --preset default --target "${targets[@]}"
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
# GIMP 2.10 reads plug-ins from its user folder's plug-ins, each in a folder of its own name.
gimp_plugin="$prefix/lib/gimp/2.0/plug-ins/vellux-flare"
if [ -x "$gimp_plugin/vellux-flare" ]; then
  gimp_user="${GIMP2_DIRECTORY:-${XDG_CONFIG_HOME:-$HOME/.config}/GIMP/2.10}"
  mkdir -p "$gimp_user/plug-ins"
  ln -sfn "$gimp_plugin" "$gimp_user/plug-ins/vellux-flare"
  echo "Linked the GIMP plug-in into $gimp_user/plug-ins (Filters > Light and Shadow > Vellux Lens Flare...)"
fi
case ":$PATH:" in
  *":$prefix/bin:"*) ;;
  *) echo "Add it to your PATH: export PATH=\"$prefix/bin:\$PATH\"" ;;
esac
