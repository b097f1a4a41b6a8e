#!/usr/bin/env bash
# The filter in ffmpeg: frames of a test pattern through the filter (default look) and without it,
# decoded and discarded; prints both times and frames per second.
#
#   scripts/frei0r-bench.sh [build dir] [WxH] [frames]    (default build/default 1920x1080 300)
#
# ffmpeg runs on one thread, so that what the filter does with the cores is what is measured.
set -euo pipefail
cd "$(dirname "$0")/.."
export FREI0R_PATH="$(cd "${1:-build/default}/frei0r" && pwd)"
size=${2:-1920x1080}
frames=${3:-300}
run() {
  local start end
  start=$(date +%s.%N)
  ffmpeg -v error -threads 1 -filter_threads 1 -f lavfi -i "testsrc2=size=$size:rate=30" -frames:v "$frames" "$@" -f null -
  end=$(date +%s.%N)
  echo "$end - $start" | bc
}
plain=$(run)
filtered=$(run -vf frei0r=filter_name=vellux)
echo "$frames frames $size: ffmpeg alone ${plain} s, with the filter ${filtered} s"
echo "with the filter: $(echo "scale=1; $frames / $filtered" | bc) frames/s; the filter alone: $(echo "scale=1; $frames / ($filtered - $plain)" | bc) frames/s"
