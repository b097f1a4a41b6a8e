#!/usr/bin/env bash
# Makes the README's pictures of the lenses' own flares (docs/gallery/) with the built tool,
# oiiotool and ffmpeg:
#   lens-look.jpg        the double Gauss on the sample frame: its table, its own flare at f/2 and at f/8 (six blades)
#   lens-look-LENS.jpg   each shipped lens on the sample frame, wide open and at f/8, side by side
#   lens-sweep.gif       the double Gauss at f/8 through six blades, the light crossing a black frame
#   lens-preview.jpg     vellux lens preview's contact sheet of the double Gauss through six blades
#
#   scripts/lens-gallery.sh [VELLUX]     (default: build/default/tools/vellux)
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
vellux="${1:-$root/build/default/tools/vellux}"
gallery="$root/docs/gallery"
plate="$root/docs/sample-frame.png"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

# A label in the lower left of a 480x270 picture, where a font can be had.
label() {
    oiiotool "$1" --text:x=14:y=256:size=22:font=DejaVuSans:shadow=2 "$2" -o "$1" 2>/dev/null || true
}

# Each lens at its widest (its stated f-number) and at f/8, the light where the README's renders put it.
for lens in double-gauss-50mm wide-angle-22mm fisheye-10mm vintage-58mm; do
    # Its stated f-number, or as wide as its prescription opens where that is narrower (as --lens takes it).
    widest=$("$vellux" lens show "$root/lenses/$lens.json" --json |
             awk -F': ' '/^  "(fNumber|fullAperture)"/ { v = $2 + 0; if (v > w) w = v } END { print w }')
    for stop in wide 8; do
        aperture=()
        [ "$stop" = 8 ] && aperture=(--f-number 8)
        "$vellux" render -q -i "$plate" --light 288,189 --lens "$lens" "${aperture[@]}" -o "$work/$lens-$stop.png"
        oiiotool "$work/$lens-$stop.png" --resize 480x270 -o "$work/$lens-$stop.png"
    done
    label "$work/$lens-wide.png" "f/$(printf '%.2g' "$widest")"
    label "$work/$lens-8.png" "f/8"
    oiiotool "$work/$lens-wide.png" "$work/$lens-8.png" --mosaic 2x1 --compression jpeg:85 -o "$work/lens-look-$lens.jpg"
    mv "$work/lens-look-$lens.jpg" "$gallery/"
done

# The same lens as a table and as its own flare.
"$vellux" render -q -i "$plate" --light 288,189 --table double-gauss-50mm -o "$work/as-table.png"
"$vellux" render -q -i "$plate" --light 288,189 --lens double-gauss-50mm --f-number 2 -o "$work/as-lens-2.png"
"$vellux" render -q -i "$plate" --light 288,189 --lens double-gauss-50mm --f-number 8 --blades 6 -o "$work/as-lens-8.png"
for look in as-table as-lens-2 as-lens-8; do oiiotool "$work/$look.png" --resize 480x270 -o "$work/$look.png"; done
label "$work/as-table.png" "table"
label "$work/as-lens-2.png" "lens, f/2"
label "$work/as-lens-8.png" "lens, f/8, 6 blades"
oiiotool "$work/as-table.png" "$work/as-lens-2.png" "$work/as-lens-8.png" --mosaic 3x1 --compression jpeg:85 -o "$work/lens-look.jpg"
mv "$work/lens-look.jpg" "$gallery/"

"$vellux" lens preview double-gauss-50mm --blades 6 --size 320x180 -o "$work/lens-preview.png"
oiiotool "$work/lens-preview.png" --compression jpeg:85 -o "$work/lens-preview.jpg"
mv "$work/lens-preview.jpg" "$gallery/"

# The sweep, on black (the sample frame's sun stays where it is painted): 24 frames, the light
# from the left edge across to the right, rising a little.
for frame in $(seq 0 23); do
    x=$(awk -v f="$frame" 'BEGIN { printf "%.1f", 960 * (0.03 + 0.94 * f / 23) }')
    y=$(awk -v f="$frame" 'BEGIN { printf "%.1f", 540 * (0.42 - 0.12 * f / 23) }')
    "$vellux" render -q --size 960x540 --light "$x,$y" --lens double-gauss-50mm --f-number 8 --blades 6 \
        -o "$work/sweep$(printf '%02d' "$frame").png"
done
"$root/scripts/make-gif.sh" "$work/sweep%02d.png" "$gallery/lens-sweep.gif"
