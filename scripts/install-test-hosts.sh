#!/usr/bin/env bash
# Installs the real hosts the tests drive, only those that are missing: ffmpeg and melt (MLT) for
# the frei0r filter, and Blender for the add-on: with OpenColorIO's Python module (the viewport flare
# through Blender's view transforms), and a virtual X display with software OpenGL for the test
# that draws the viewport in Blender's window; GIMP 2.10 for the GIMP plug-in, and xdotool to press
# keys in its window.
set -euo pipefail
"$(dirname "$0")/apt-install-missing.sh" ffmpeg melt blender python3-pyopencolorio xvfb xauth libgl1-mesa-dri gimp xdotool
