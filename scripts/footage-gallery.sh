#!/usr/bin/env bash
# Makes the README's picture of a flare following a light in footage (docs/gallery/) with the
# built tool and ffmpeg, as the README's example does it:
#   track-street.gif     the sample shot's lamp tracked, the flare on it, dimming behind the post
#
#   scripts/footage-gallery.sh [VELLUX]     (default: build/default/tools/vellux)
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
vellux="${1:-$root/build/default/tools/vellux}"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

"$vellux" sample-frame --frames 1-24 -o "$work/street.####.png"
"$vellux" track -q -i "$work/street.####.png" --at 96,356 -o "$work/street.json"
"$vellux" render -q --scene "$work/street.json" -o "$work/lit.####.png"
"$root/scripts/make-gif.sh" "$work/lit.%04d.png" "$root/docs/gallery/track-street.gif"
