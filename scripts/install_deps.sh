#!/usr/bin/env bash
# Installs the Debian packages this project needs to build and test, when
# they are missing, plus any package named on the command line. Safe to run
# again: it installs nothing already present.
set -euo pipefail

packages=(cmake g++ gcc make pkg-config libsqlite3-dev libgtest-dev libgmock-dev binutils abigail-tools
  "$@")
missing=()
for package in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" ||
    missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "Installing: ${missing[*]}"
sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
$sudo apt-get update
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y --no-install-recommends "${missing[@]}"
