#!/usr/bin/env bash
# Compares the built library's public ABI with the committed baseline
# (database_interface.abi beside this script) and fails on any change: an
# exported symbol added or removed, a virtual operation moved, a record's
# layout changed. Only types of the public headers count.
#
#   check_abi.sh LIBRARY HEADERS_DIR            compare
#   check_abi.sh LIBRARY HEADERS_DIR --update   write a new baseline
set -euo pipefail
library="$1"
headers="$2"
baseline="$(dirname "$0")/database_interface.abi"

if [ "${3:-}" = "--update" ]; then
  abidw --headers-dir "$headers" --no-corpus-path --out-file "$baseline" "$library"
  echo "baseline written: $baseline"
  exit 0
fi
rc=0
abidiff --headers-dir2 "$headers" "$baseline" "$library" || rc=$?
if [ $rc -ne 0 ]; then
  echo "the ABI differs from $baseline (abidiff exit $rc). On a deliberate, versioned change:"
  echo "  $0 $library $headers --update"
  exit 1
fi
echo "ABI matches $baseline"
