#!/usr/bin/env bash
# The filter in ffmpeg: 300 frames of a 1920x1080 test pattern through the filter (default look)
# and without it, one thread, decoded and discarded; prints both times and frames per second.
#
#   scripts/frei0r-bench.sh [build dir]     (default build/default)
set -euo pipefail
cd "$(dirname "$0")/.."
export FREI0R_PATH="$(cd "${1:-build/default}/frei0r" && pwd)"
run() {
  local start end
  start=$(date +%s.%N)
  ffmpeg -v error -threads 1 -filter_threads 1 -f lavfi -i testsrc2=size=1920x1080:rate=30 -frames:v 300 "$@" -f null -
  end=$(date +%s.%N)
  echo "$end - $start" | bc
}
plain=$(run)
filtered=$(run -vf frei0r=filter_name=vellux)
echo "300 frames 1920x1080: ffmpeg alone ${plain} s, with the filter ${filtered} s"
echo "with the filter: $(echo "scale=1; 300 / $filtered" | bc) frames/s; the filter alone: $(echo "scale=1; 300 / ($filtered - $plain)" | bc) frames/s"
