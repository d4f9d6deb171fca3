#!/usr/bin/env bash
# From a fresh machine: installs what is missing, builds the SQLite
# amalgamation the library compiles in (scripts/fetch_sqlite.sh), configures,
# builds and runs every test under CTest. Exits non-zero when any test fails.
#
#   scripts/run_tests.sh           plain build (build/)
#   scripts/run_tests.sh system    linking the system SQLite instead (build-system/)
#   scripts/run_tests.sh newest    compiling in the newest SQLite release, Debian's, pinned in
#                                  cmake/sqlite_newest_version.txt (build-newest/)
#   scripts/run_tests.sh address   AddressSanitizer + UBSan (build-address/)
#   scripts/run_tests.sh thread    ThreadSanitizer (build-thread/)
#   scripts/run_tests.sh windows   cross-built with MinGW-w64, run under Wine (build-windows/)
# Under a sanitizer any report fails the test that caused it.
set -euo pipefail
cd "$(dirname "$0")/.."
mode="${1:-}"

if [ "$mode" = "windows" ]; then
  scripts/install_deps.sh g++-mingw-w64-x86-64-posix wine64 wine googletest \
    libimage-exiftool-perl
else
  scripts/install_deps.sh
fi
scripts/fetch_sqlite.sh
if [ "$mode" = "newest" ]; then
  scripts/fetch_sqlite.sh newest third_party/sqlite-newest
fi
if [ "$mode" = "windows" ]; then
  dir=build-windows
  toolchain="$PWD/cmake/mingw-w64.cmake"
  # GoogleTest from Debian's source package, built for Windows once.
  gtest="$PWD/$dir/googletest"
  if [ ! -f "$gtest/install/lib/cmake/GTest/GTestConfig.cmake" ]; then
    cmake -S /usr/src/googletest -B "$gtest/build" -DCMAKE_TOOLCHAIN_FILE="$toolchain" \
      -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX="$gtest/install"
    cmake --build "$gtest/build" -j "$(nproc)"
    cmake --install "$gtest/build"
  fi
  cmake -S . -B "$dir" -DCMAKE_TOOLCHAIN_FILE="$toolchain" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DGTest_DIR="$gtest/install/lib/cmake/GTest"
  cmake --build "$dir" -j "$(nproc)"

  # A Wine prefix of our own, headless and quiet, with no Mono or Gecko to
  # offer and no desktop menu entries. One persistent wineserver serves every
  # program, ended on the way out.
  export WINEPREFIX="$PWD/$dir/wineprefix" WINEDEBUG=-all DISPLAY=
  export WINEDLLOVERRIDES="mscoree,mshtml,winemenubuilder.exe="
  [ -f "$WINEPREFIX/system.reg" ] || echo "Creating the Wine prefix $WINEPREFIX (10-20 s)..."
  # The server runs in the prefix directory, so that comes first.
  mkdir -p "$WINEPREFIX"
  wineserver -k 2>/dev/null || true
  wineserver -p
  trap 'wineserver -k 2>/dev/null || true' EXIT
  # Creates the prefix when missing and starts Wine's own services here, away
  # from CTest: a service started by a test program inherits that program's
  # output, and CTest would wait for it to close until the timeout.
  wine wineboot --init </dev/null >/dev/null 2>&1
  tests_ok=1
  ctest --test-dir "$dir" --output-on-failure -j "$(nproc)" --timeout 120 || tests_ok=0
  # The example, as a host would run it: on the store in its default log
  # directory inside the prefix.
  demo_ok=1
  wine "$dir/examples/host_demo.exe" || demo_ok=0
  [ "$tests_ok$demo_ok" = 11 ] || {
    echo "windows: tests ok=$tests_ok, host_demo ok=$demo_ok" >&2
    exit 1
  }
elif [ -z "$mode" ]; then
  cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo
  cmake --build build -j "$(nproc)"
  ctest --test-dir build --output-on-failure -j "$(nproc)"
elif [ "$mode" = "newest" ]; then
  cmake -S . -B build-newest -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DDATABASE_INTERFACE_SQLITE_SOURCE_DIR="$PWD/third_party/sqlite-newest"
  cmake --build build-newest -j "$(nproc)"
  ctest --test-dir build-newest --output-on-failure -j "$(nproc)"
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
