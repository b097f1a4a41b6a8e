# Sourced by the tests that drive GIMP with its window on a virtual X display: a scratch folder
# ($work, removed at exit with the display and GIMP), fail(), a fresh GIMP user folder holding the
# plug-in, a plate, the display, and GIMP running a Script-Fu file on it in the background
# ($gimp_pid).
work="$(mktemp -d)"
xvfb="" gimp_pid=""
cleanup() {
  [ -n "$gimp_pid" ] && kill "$gimp_pid" 2>/dev/null || true
  [ -n "$xvfb" ] && kill "$xvfb" 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT
# The message, then GIMP's console (without its theme warnings).
fail() { echo "FAIL: $*" >&2; [ -f "$work/log" ] && grep -v "theme engine\|^$" "$work/log" >&2; exit 1; }

# $work/user: a GIMP user folder holding only the plug-in PLUGIN.
make_gimp_user() {
  user="$work/user"
  mkdir -p "$user/plug-ins/vellux-flare" "$user"/{brushes,dynamics,gradients,palettes,patterns,tool-presets}
  cp "$1" "$user/plug-ins/vellux-flare/vellux-flare"
}

# $work/plate.png: an 8-bit RGB plate of SIZE (WxH), four colours blended across it.
make_plate() {
  oiiotool --pattern fill:topleft=0.1,0.2,0.3:topright=0.8,0.3,0.1:bottomleft=0.2,0.6,0.4:bottomright=0.9,0.9,0.2 \
    "$1" 3 -d uint8 -o "$work/plate.png"
}

# A virtual X display of SIZE (WxH), made the DISPLAY.
start_display() {
  Xvfb -displayfd 3 -screen 0 "$1x24" -nolisten tcp -ac 3>"$work/display" 2>"$work/xvfb.log" &
  xvfb=$!
  for _ in $(seq 50); do [ -s "$work/display" ] && break; sleep 0.1; done
  [ -s "$work/display" ] || fail "Xvfb did not start: $(cat "$work/xvfb.log")"
  export DISPLAY=":$(cat "$work/display")"
}

# GIMP (GIMP, with the user folder) running the Script-Fu file SCRIPT, stopped after SECONDS; its
# console in $work/log.
start_gimp() {
  GIMP2_DIRECTORY="$user" timeout "$2" "$1" -d -f -b "(load \"$3\")" -b "(gimp-quit 1)" >"$work/log" 2>&1 &
  gimp_pid=$!
}
