#!/usr/bin/env bash
# From a fresh machine: installs Clang and libFuzzer when missing, builds the
# fuzz target with AddressSanitizer + UBSan in build-fuzz/ and runs it for the
# given number of seconds over a copy of fuzz/corpus/ (the checked-in corpus
# is never written). Exits non-zero on a crash, a leak, a sanitizer report or
# a failed check; the input that caused it is kept in build-fuzz/artifacts/.
#
#   scripts/run_fuzz.sh [seconds]     default 60
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${1:-60}"

scripts/install_deps.sh clang-14 libclang-rt-14-dev
scripts/fetch_sqlite.sh
cmake -S . -B build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER=clang++-14 \
  -DDATABASE_INTERFACE_BUILD_FUZZERS=ON -DDATABASE_INTERFACE_BUILD_TESTS=OFF \
  -DDATABASE_INTERFACE_BUILD_EXAMPLES=OFF -DDATABASE_INTERFACE_INSTALL=OFF
cmake --build build-fuzz -j "$(nproc)" --target database_interface_fuzzer

corpus=build-fuzz/corpus
artifacts=build-fuzz/artifacts
rm -rf "$corpus" "$artifacts"
mkdir -p "$corpus" "$artifacts"
cp fuzz/corpus/* "$corpus"/
# One input runs in milliseconds: a minute on one is a hang.
ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
  build-fuzz/fuzz/database_interface_fuzzer -max_total_time="$seconds" -max_len=4096 \
  -timeout=60 -print_final_stats=1 -artifact_prefix="$artifacts/" "$corpus"
