#!/usr/bin/env bash
# Installs the Debian packages the whole build and the tests need, only those that are missing:
# what the tool needs (install-build-deps.sh), then the tests', the benchmarks', the fuzzers' and
# the front ends' (GIMP's plug-in SDK for the GIMP plug-in, left out of the build without it).
set -euo pipefail

"$(dirname "$0")/install-build-deps.sh"
packages=(g++-multilib libgtest-dev libgmock-dev googletest libbenchmark-dev
          clang libclang-rt-14-dev
          openimageio-tools chromium frei0r-plugins-dev libgimp2.0-dev
          python3-dev pybind11-dev python3-numpy python3-pytest python3-distributed)
# Node for the browser test: Debian's, unless a node is installed already (its own npm would
# conflict with Debian's npm package).
command -v node >/dev/null || packages+=(nodejs)
command -v npm >/dev/null || packages+=(npm)

"$(dirname "$0")/apt-install-missing.sh" "${packages[@]}"

# The browser test's one npm package, playwright-core, at the version web/package-lock.json pins.
# It drives the chromium installed above; it never downloads a browser.
web="$(dirname "$0")/../web"
pinned=$(sed -n 's/.*"playwright-core": "\(.*\)".*/\1/p' "$web/package.json")
installed=$(sed -n 's/^  "version": "\(.*\)".*/\1/p' "$web/node_modules/playwright-core/package.json" 2>/dev/null || true)
if [ "$installed" != "$pinned" ]; then
  echo "Installing playwright-core $pinned in web/"
  (cd "$web" && PLAYWRIGHT_SKIP_BROWSER_DOWNLOAD=1 npm ci --no-audit --no-fund --loglevel=error)
fi
