#!/usr/bin/env bash
# Installs the Debian packages the build and the tests need, only those that are missing.
set -euo pipefail

packages=(cmake ninja-build g++ g++-multilib libgtest-dev libgmock-dev googletest libbenchmark-dev
          clang libclang-rt-14-dev
          nlohmann-json3-dev libcli11-dev
          libopenimageio-dev openimageio-tools pkgconf)

missing=()
for package in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' || missing+=("$package")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "Installing: ${missing[*]}"
  sudo_cmd=()
  [ "$(id -u)" -ne 0 ] && sudo_cmd=(sudo)
  "${sudo_cmd[@]}" apt-get update -qq
  DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get install -y -qq "${missing[@]}"
fi
