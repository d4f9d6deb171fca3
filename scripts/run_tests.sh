#!/usr/bin/env bash
# From a fresh machine: installs what is missing, builds the SQLite
# amalgamation the library compiles in (scripts/fetch_sqlite.sh), configures,
# builds and runs every test under CTest. Exits non-zero when any test fails.
#
#   scripts/run_tests.sh           plain build (build/)
#   scripts/run_tests.sh system    linking the system SQLite instead (build-system/)
#   scripts/run_tests.sh address   AddressSanitizer + UBSan (build-address/)
#   scripts/run_tests.sh thread    ThreadSanitizer (build-thread/)
# Under a sanitizer any report fails the test that caused it.
set -euo pipefail
cd "$(dirname "$0")/.."
mode="${1:-}"

scripts/install_deps.sh
scripts/fetch_sqlite.sh
if [ -z "$mode" ]; then
  cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo
  cmake --build build -j "$(nproc)"
  ctest --test-dir build --output-on-failure -j "$(nproc)"
elif [ "$mode" = "system" ]; then
  cmake -S . -B build-system -DCMAKE_BUILD_TYPE=RelWithDebInfo -DDATABASE_INTERFACE_SYSTEM_SQLITE=ON
  cmake --build build-system -j "$(nproc)"
  ctest --test-dir build-system --output-on-failure -j "$(nproc)"
else
  dir="build-$mode"
  cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=Debug -DDATABASE_INTERFACE_SANITIZE="$mode"
  cmake --build "$dir" -j "$(nproc)"
  # The embedding check builds its own unsanitized copy; the plain run covers it.
  ASAN_OPTIONS=detect_leaks=1:abort_on_error=0 UBSAN_OPTIONS=print_stacktrace=1 \
  TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 \
    ctest --test-dir "$dir" --output-on-failure -j "$(nproc)" -E '^Packaging\.AddSubdirectory'
fi
