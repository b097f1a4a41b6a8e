#!/usr/bin/env bash
# Cancel in the plug-in's progress window stops it and leaves the image as it was, with no undo
# group left open: GIMP with its window on a virtual X display runs the procedure on a large image
# it shows (seconds of painting), and the test presses Cancel as soon as the progress shows.
#
#   tests/gimp/cancel_test.sh GIMP PLUGIN
set -euo pipefail
gimp="$1"
plugin="$2"
source "$(dirname "$0")/gimp_on_display.sh"

make_gimp_user "$plugin"
make_plate 12000x8000

# A stopped procedure is an error to Script-Fu: caught, and the image saved as it then is.
cat >"$work/cancel.scm" <<SCHEME
(define image (car (gimp-file-load RUN-NONINTERACTIVE "$work/plate.png" "plate.png")))
(define layer (car (gimp-image-get-active-drawable image)))
(gimp-display-new image)
(gimp-displays-flush)
(catch #f (plug-in-vellux-flare RUN-NONINTERACTIVE image layer 6000 4000 '(255 255 255) 1.0 "" "" ""
                                "streak-density=3 star-filter=8 anamorphic-streak=on" "" FALSE))
(gimp-file-save RUN-NONINTERACTIVE image layer "$work/after.png" "after.png")
(gimp-file-save RUN-NONINTERACTIVE image layer "$work/saved.png" "saved.png")
SCHEME

start_display 1280x800
start_gimp "$gimp" 240 "$work/cancel.scm"
# The image's window shows once it is loaded; the next progress window is the plug-in's.
xdotool search --sync --name "plate.png-" >/dev/null
progress=$(timeout 120 xdotool search --sync --name "^Progress$" | head -1)
[ -n "$progress" ] || fail "no progress window for the plug-in"
# Its Cancel button, at the lower right of the window (345,92 of its 400x120).
eval "$(xdotool getwindowgeometry --shell "$progress")"
xdotool mousemove --window "$progress" $((WIDTH - 55)) $((HEIGHT - 28)) click 1
for _ in $(seq 480); do [ -f "$work/saved.png" ] && break; sleep 0.5; done
[ -f "$work/saved.png" ] || fail "the script did not go on after the cancel"
sleep 1   # written whole
oiiotool "$work/plate.png" "$work/after.png" --diff >/dev/null || fail "the cancelled run changed the image"
# GIMP says when a plug-in it stopped left an undo group open.
! xdotool search --name "GIMP Message" >/dev/null 2>&1 || fail "GIMP showed a message after the cancel"
echo "Cancel stopped the plug-in and left the image as it was"
