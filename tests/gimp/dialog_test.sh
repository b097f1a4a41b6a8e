#!/usr/bin/env bash
# The plug-in's dialog in GIMP's window on a virtual X display: GIMP runs the procedure
# interactively on the sample frame; screenshots of the dialog before and after a click in its
# preview (kept in OUT, to be looked at) must differ in the preview; OK then paints the image
# exactly as `vellux render` paints it with the light where the click put it (the dialog's last
# values, which GIMP keeps for the procedure, say where).
#
#   tests/gimp/dialog_test.sh GIMP PLUGIN TOOL SAMPLE_FRAME OUT
set -euo pipefail
gimp="$1" plugin="$2" tool="$3" frame="$4" out="$5"
source "$(dirname "$0")/gimp_on_display.sh"

mkdir -p "$out"
rm -f "$out"/dialog*.png
make_gimp_user "$plugin"

# After the dialog: the last values (the procedure's data) on GIMP's console, then the image saved.
cat >"$work/dialog.scm" <<SCHEME
(define image (car (gimp-file-load RUN-NONINTERACTIVE "$frame" "sample-frame.png")))
(define layer (car (gimp-image-get-active-drawable image)))
(gimp-display-new image)
(plug-in-vellux-flare RUN-INTERACTIVE image layer 288 189 '(255 255 255) 1.0 "" "" "" "" "" FALSE)
(define data (cadr (gimp-procedural-db-get-data "plug-in-vellux-flare")))
(gimp-message-set-handler CONSOLE)
(gimp-message (string-append "last values: " (list->string (map integer->char (vector->list data)))))
(gimp-file-save RUN-NONINTERACTIVE image layer "$work/dialog.png" "dialog.png")
(gimp-image-clean-all image)
SCHEME

start_display 1600x1000
start_gimp "$gimp" 240 "$work/dialog.scm"

window=""
for _ in $(seq 240); do
  window=$(xdotool search --name "Vellux Lens Flare" 2>/dev/null | head -1) && [ -n "$window" ] && break
  sleep 0.5
done
[ -n "$window" ] || fail "the dialog did not open"
sleep 2   # drawn, the preview painted
import -window "$window" "$out/dialog.png"
# The preview is the dialog's top left; a click in its right half moves the light right.
xdotool mousemove --window "$window" 360 120 click 1
sleep 2
import -window "$window" "$out/dialog-after-click.png"
! oiiotool "$out/dialog.png" --cut 220x140+0+0 "$out/dialog-after-click.png" --cut 220x140+0+0 --diff >/dev/null 2>&1 ||
  fail "the preview did not change after the click"
xdotool windowfocus --sync "$window"
xdotool key Return
for _ in $(seq 60); do grep -q "last values: " "$work/log" && [ -f "$work/dialog.png" ] && break; sleep 0.5; done
wait "$gimp_pid" || true
gimp_pid=""
values=$(sed -n 's/.*last values: //p' "$work/log" | head -1)
[ -n "$values" ] || fail "no last values"
x=$(/usr/bin/python3 -c "import json, sys; print(json.loads(sys.argv[1])['light-x'])" "$values")
y=$(/usr/bin/python3 -c "import json, sys; print(json.loads(sys.argv[1])['light-y'])" "$values")
/usr/bin/python3 -c "import sys; sys.exit(0 if float(sys.argv[1]) > 480 else 1)" "$x" ||
  fail "the light is at $x,$y: the click did not move it right"
"$tool" render -q -i "$frame" --light "$x,$y" -o "$work/tool.png"
oiiotool "$work/tool.png" "$work/dialog.png" --diff >/dev/null || fail "OK did not paint the tool's pixels at $x,$y"
echo "the click put the light at $x,$y; OK painted the tool's pixels; screenshots in $out"
