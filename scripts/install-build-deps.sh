#!/usr/bin/env bash
# Installs the Debian packages building and running the tool, the plug-in and the tables need (the
# quick start), only those that are missing. scripts/install-deps.sh adds what the tests need.
set -euo pipefail
# OpenCV's core and image processing: the headers only (finding lights in footage), as the image
# library already brings the two libraries themselves.
"$(dirname "$0")/apt-install-missing.sh" cmake ninja-build g++ pkgconf \
    nlohmann-json3-dev libcli11-dev libcpp-httplib-dev libopenimageio-dev zlib1g-dev libkissfft-dev \
    libopencv-core-dev libopencv-imgproc-dev \
    fonts-dejavu-core   # the f-number labels of vellux lens preview
