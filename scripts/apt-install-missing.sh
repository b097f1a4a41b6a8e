#!/usr/bin/env bash
# Installs the given Debian packages that are not installed yet (with sudo when not root).
#
#   scripts/apt-install-missing.sh PACKAGE...
set -euo pipefail
missing=()
for package in "$@"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' || missing+=("$package")
done
[ ${#missing[@]} -gt 0 ] || exit 0
echo "Installing: ${missing[*]}"
sudo_cmd=()
[ "$(id -u)" -ne 0 ] && sudo_cmd=(sudo)
"${sudo_cmd[@]}" apt-get update -qq
DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get install -y -qq "${missing[@]}"
