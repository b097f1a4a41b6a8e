#!/usr/bin/env bash
# Makes a looping GIF, 480 pixels wide at 8 frames a second, from numbered PNG frames with ffmpeg
# (a palette made for the frames, ordered dither):
#   scripts/make-gif.sh 'FRAMES%02d.png' OUT.gif
set -euo pipefail
frames="$1" out="$2"
ffmpeg -v error -y -framerate 8 -i "$frames" \
    -vf "scale=480:-1:flags=lanczos,split[a][b];[a]palettegen=stats_mode=diff[p];[b][p]paletteuse=dither=bayer:bayer_scale=3" \
    -loop 0 "$out.part.gif"
mv "$out.part.gif" "$out"
