#!/usr/bin/env bash
# The plug-in's run is one undo step: GIMP with its window on a virtual X display runs the
# procedure on an image it shows, then one Ctrl+Z pressed in the image's window gives back the
# image exactly. (There is no undo in GIMP's procedure database: the key is pressed for real.)
#
#   tests/gimp/undo_test.sh GIMP PLUGIN
set -euo pipefail
gimp="$1"
plugin="$2"
source "$(dirname "$0")/gimp_on_display.sh"

make_gimp_user "$plugin"
make_plate 320x200

# The script waits, asking GIMP for a pixel the flare changed, until the undo changes it back.
cat >"$work/undo.scm" <<SCHEME
(define image (car (gimp-file-load RUN-NONINTERACTIVE "$work/plate.png" "plate.png")))
(define layer (car (gimp-image-get-active-drawable image)))
(gimp-display-new image)
(plug-in-vellux-flare RUN-NONINTERACTIVE image layer 100 70 '(255 255 255) 1.0 "" "" "" "" "" FALSE)
(gimp-displays-flush)
(define flared (cadr (gimp-drawable-get-pixel layer 100 70)))
(gimp-file-save RUN-NONINTERACTIVE image layer "$work/after.png" "after.png")
(define (wait-undo n) (if (and (> n 0) (equal? (cadr (gimp-drawable-get-pixel layer 100 70)) flared)) (wait-undo (- n 1)) n))
(wait-undo 200000)
(gimp-file-save RUN-NONINTERACTIVE image layer "$work/undone.png" "undone.png")
(gimp-image-clean-all image)
SCHEME

start_display 1280x800
start_gimp "$gimp" 180 "$work/undo.scm"
for _ in $(seq 240); do [ -f "$work/after.png" ] && break; sleep 0.5; done
[ -f "$work/after.png" ] || fail "GIMP did not run the plug-in"
sleep 1   # the export done, the script is waiting
window=$(xdotool search --name "plate" | head -1)
[ -n "$window" ] || fail "no image window"
xdotool windowfocus --sync "$window"
xdotool key --clearmodifiers ctrl+z
for _ in $(seq 60); do [ -f "$work/undone.png" ] && break; sleep 0.5; done
[ -f "$work/undone.png" ] || fail "the undo did not change the flared pixel back"
sleep 0.5   # the file written whole
! oiiotool "$work/plate.png" "$work/after.png" --diff >/dev/null 2>&1 || fail "the plug-in did not change the image"
oiiotool "$work/plate.png" "$work/undone.png" --diff >/dev/null || fail "one undo does not give back the image"
wait "$gimp_pid" || true
gimp_pid=""
echo "one undo gave back the image exactly"
