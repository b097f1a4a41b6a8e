#!/usr/bin/env bash
# Builds and runs every test: the fuzzers for a bounded time (FUZZ_SECONDS, default 60 each),
# the 64-bit build, the 32-bit reference-layout build, and the AddressSanitizer +
# UndefinedBehaviorSanitizer build.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
scripts/install-test-hosts.sh
jobs=$(nproc)
scripts/fuzz.sh "${FUZZ_SECONDS:-60}"
for preset in default m32 asan; do
  echo "=== $preset ==="
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" -j "$jobs"
  ctest --preset "$preset" -j "$jobs"
done
