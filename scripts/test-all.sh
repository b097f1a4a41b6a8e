#!/usr/bin/env bash
# Builds and runs every test: the fuzzers for a bounded time (FUZZ_SECONDS, default 60 each),
# the 64-bit build, the 32-bit reference-layout build, and the AddressSanitizer +
# UndefinedBehaviorSanitizer build, then the ThreadSanitizer build of the threaded engine tests
# alone (one frame painted on several threads).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
scripts/install-test-hosts.sh
jobs=$(nproc)

# Whether this machine runs 32-bit programs at all: some virtual machines' kernels execute only
# 64-bit code. There the 32-bit build is still compiled, which is its layout proof (static_asserts),
# and its tests are left out, saying so.
runs_32bit() {
  local probe status
  probe=$(mktemp -d)
  echo 'int main(void) { return 0; }' > "$probe/probe.c"
  status=0
  { cc -m32 "$probe/probe.c" -o "$probe/probe" && "$probe/probe"; } >/dev/null 2>&1 || status=1
  rm -rf "$probe"
  return $status
}

scripts/fuzz.sh "${FUZZ_SECONDS:-60}"
for preset in default m32 asan; do
  echo "=== $preset ==="
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" -j "$jobs"
  if [ "$preset" = m32 ] && ! runs_32bit; then
    echo "This machine cannot run 32-bit programs: the 32-bit build (and its layout proof) compiled; its tests are not run here."
    continue
  fi
  ctest --preset "$preset" -j "$jobs"
done

echo "=== tsan ==="
cmake --preset tsan >/dev/null
cmake --build --preset tsan -j "$jobs"
ctest --preset tsan -j "$jobs"
