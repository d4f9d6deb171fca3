#!/usr/bin/env bash
# Reads the version resource of each DLL given (exiftool) and fails unless
# its file and product versions are VERSION (numbers VERSION.0 too) and it
# names the product and describes the file.
#
#   check_dll_version.sh VERSION DLL...
set -euo pipefail
version="$1"
shift
numbers="$version"
while [ "$(tr -cd . <<<"$numbers" | wc -c)" -lt 3 ]; do numbers="$numbers.0"; done
for dll in "$@"; do
  info=$(exiftool -s -s -FileVersionNumber -ProductVersionNumber -FileVersion \
    -ProductVersion -ProductName -FileDescription "$dll")
  echo "$dll:"; echo "$info"
  for expected in "FileVersionNumber: $numbers" "ProductVersionNumber: $numbers" \
                  "FileVersion: $version" "ProductVersion: $version" \
                  "ProductName: database_interface"; do
    grep -qxF "$expected" <<<"$info" || { echo "missing: $expected"; exit 1; }
  done
  grep -qE '^FileDescription: .{10,}' <<<"$info" || { echo "no FileDescription"; exit 1; }
done
echo "versions ok"
