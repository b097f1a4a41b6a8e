#!/usr/bin/env bash
# Installs the real hosts the tests drive, only those that are missing: ffmpeg and melt (MLT) for
# the frei0r filter, and Blender for the add-on.
set -euo pipefail
"$(dirname "$0")/apt-install-missing.sh" ffmpeg melt blender
