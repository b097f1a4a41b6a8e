#!/usr/bin/env bash
# An installed tree works wherever it is moved: install into a temporary prefix, move the prefix,
# and render from the moved copy with a clean environment. Nothing may be found in the build:
# the libraries resolve inside the moved tree, the plug-in and the tables are the moved ones, and
# the render equals the build's own, pixel for pixel.
#
#   tests/install/install_test.sh BUILD_DIR SOURCE_DIR
set -euo pipefail
build="$(cd "$1" && pwd)"
source="$(cd "$2" && pwd)"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

cmake --install "$build" --prefix "$work/prefix" >/dev/null
mv "$work/prefix" "$work/moved"
vellux="$work/moved/bin/vellux"
run() { (cd "$work" && env -i HOME="$work/home" PATH=/usr/bin:/bin "$vellux" "$@"); }

# The tool links the engine's core; its image module (loaded for renders) the whole engine.
ours=$(env -i "$(command -v ldd)" "$vellux" | grep -E "vellux|$build" || true)
grep -qF "libvellux_engine_core.so => $work/moved/" <<<"$ours" || fail "the engine is not the moved one: $ours"
grep -qF "libvellux_host.so => $work/moved/" <<<"$ours" || fail "the host library is not the moved one: $ours"
! grep -qF "$build" <<<"$ours" || fail "a library comes from the build: $ours"
images=$(env -i "$(command -v ldd)" "$work/moved/lib/libvellux_tool_images.so" | grep -E "vellux|$build" || true)
grep -qF "libvellux_engine.so => $work/moved/" <<<"$images" || fail "the image module's engine is not the moved one: $images"
! grep -qF "$build" <<<"$images" || fail "a library of the image module comes from the build: $images"
run --version | grep -qF "($work/moved/lib/vellux/Vellux.so)" || fail "the plug-in is not the moved one: $(run --version)"
run tables | grep -qF "$work/moved/share/vellux/tables/LongZoom.rsc" || fail "the tables are not the moved ones: $(run tables)"
run tables | grep -qF "$build" && fail "a table folder of the build is searched: $(run tables)"

look=(--table LongZoom --star-filter 4 --light 288,189 -q)
run render -i "$source/docs/sample-frame.png" "${look[@]}" -o "$work/moved.png"
"$build/tools/vellux" render -i "$source/docs/sample-frame.png" "${look[@]}" -o "$work/built.png"
oiiotool "$work/built.png" "$work/moved.png" --diff >/dev/null || fail "the moved tree renders other pixels"

# The Python module, where the build has it: the moved package finds the moved engine and plug-in.
if [ -d "$build/python/vellux" ]; then
  site="$work/moved/lib/python3.11/site-packages"
  (cd "$work" && env -i HOME="$work/home" PYTHONPATH="$site" /usr/bin/python3 -c "
import vellux, numpy
assert vellux.__file__.startswith('$site'), vellux.__file__
flare = vellux.Flare(table='LongZoom', star_filter=4)
image = vellux.read_image('$source/docs/sample-frame.png')
numpy.testing.assert_array_equal(flare.render(image, light=(288, 189)), vellux.read_image('$work/built.png'))
") || fail "the moved Python module does not render the build's pixels"
  # The installed Blender add-on finds that module through its prefix, with nothing set.
  addon="$work/moved/share/vellux/blender/vellux_flare"
  (cd "$work" && env -i HOME="$work/home" /usr/bin/python3 -c "
import runpy
runpy.run_path('$addon/engine_path.py')
import vellux
assert vellux.__file__.startswith('$site'), vellux.__file__
") || fail "the installed add-on does not find the installed module"
fi
# The frei0r filter, moved: its image side finds the moved engine; ffmpeg (not for the sanitizers'
# build, whose runtime ffmpeg would have to load first) loads the filter from the moved tree, and
# the filter its image side (here for the add blend) from beside the moved engine, saying nothing.
side=$(env -i "$(command -v ldd)" "$work/moved/lib/libvellux_frei0r_images.so" | grep -E "vellux|$build" || true)
grep -qF "libvellux_engine.so => $work/moved/" <<<"$side" || fail "the filter's image side's engine is not the moved one: $side"
if command -v ffmpeg >/dev/null && [ -z "${VELLUX_SANITIZED:-}" ]; then
  params="0.3/0.35|1/1/1|0.25|0|0.25|0|0.22|0x50140A|0|0|0.25|0.1|0.2|0.2566667|y|y|y|y|n|n|y|n|n||0.3|0.35|add||0.3333333|0|y|n"
  (cd "$work" && env -i HOME="$work/home" FREI0R_PATH="$work/moved/lib/frei0r-1" "$(command -v ffmpeg)" -v error -y \
     -i "$source/docs/sample-frame.png" -vf "format=rgba,frei0r=filter_name=vellux:filter_params=$params" \
     -frames:v 1 "$work/frei0r.png" >"$work/frei0r.log" 2>&1) || fail "ffmpeg did not run the moved filter: $(cat "$work/frei0r.log")"
  [ ! -s "$work/frei0r.log" ] || fail "the moved filter reported: $(cat "$work/frei0r.log")"
fi
# The GIMP plug-in, where the build has it and GIMP is installed (not for the sanitizers' build): linked into a fresh GIMP user
# folder as scripts/install.sh links it, it finds the moved engine and paints the build's pixels.
gimp_plugin="$work/moved/lib/gimp/2.0/plug-ins/vellux-flare"
if [ -x "$build/gimp/vellux-flare" ]; then
  [ -x "$gimp_plugin/vellux-flare" ] || fail "the GIMP plug-in is not installed in lib/gimp/2.0/plug-ins/vellux-flare"
  libs=$(env -i "$(command -v ldd)" "$gimp_plugin/vellux-flare" | grep -E "vellux|$build" || true)
  grep -qF "libvellux_engine.so => $work/moved/" <<<"$libs" || fail "the GIMP plug-in's engine is not the moved one: $libs"
  if command -v gimp-2.10 >/dev/null && [ -z "${VELLUX_SANITIZED:-}" ]; then
    mkdir -p "$work/gimp/plug-ins"
    ln -s "$gimp_plugin" "$work/gimp/plug-ins/vellux-flare"
    (cd "$work" && env -i HOME="$work/home" PATH=/usr/bin:/bin GIMP2_DIRECTORY="$work/gimp" gimp-2.10 -i -d -f -b "
      (let* ((image (car (gimp-file-load RUN-NONINTERACTIVE \"$source/docs/sample-frame.png\" \"frame\")))
             (layer (car (gimp-image-get-active-drawable image))))
        (plug-in-vellux-flare RUN-NONINTERACTIVE image layer 288 189 '(255 255 255) 1.0 \"LongZoom\" \"\" \"\"
                              \"star-filter=4\" \"\" FALSE)
        (gimp-file-save RUN-NONINTERACTIVE image layer \"$work/gimp.png\" \"gimp.png\"))" -b "(gimp-quit 0)" >"$work/gimp.log" 2>&1) ||
      fail "GIMP did not run: $(cat "$work/gimp.log")"
    oiiotool "$work/built.png" "$work/gimp.png" --diff >/dev/null ||
      fail "the installed GIMP plug-in paints other pixels: $(cat "$work/gimp.log")"
  fi
fi
echo "installed, moved and rendered from $work/moved: same pixels as the build"
