#!/usr/bin/env bash
# From a fresh machine: installs Clang and libFuzzer when missing, builds the
# fuzz targets with AddressSanitizer + UBSan in build-fuzz/ (SQLite included)
# and runs each for the given number of seconds, one after the other:
# database_interface_fuzzer over a copy of fuzz/corpus/ (the checked-in corpus
# is never written), database_interface_file_fuzzer over a copy of the seed
# stores its build wrote. Exits non-zero on a crash, a leak, a sanitizer
# report or a failed check; the input that caused it is kept in
# build-fuzz/artifacts/.
#
#   scripts/run_fuzz.sh [seconds]     default 60
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${1:-60}"

scripts/install_deps.sh clang-14 libclang-rt-14-dev
scripts/fetch_sqlite.sh
cmake -S . -B build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_C_COMPILER=clang-14 \
  -DCMAKE_CXX_COMPILER=clang++-14 -DDATABASE_INTERFACE_BUILD_FUZZERS=ON \
  -DDATABASE_INTERFACE_BUILD_TESTS=OFF -DDATABASE_INTERFACE_BUILD_EXAMPLES=OFF \
  -DDATABASE_INTERFACE_INSTALL=OFF
cmake --build build-fuzz -j "$(nproc)" --target database_interface_fuzzer \
  database_interface_file_fuzzer

artifacts=build-fuzz/artifacts
rm -rf build-fuzz/corpus build-fuzz/file_corpus "$artifacts"
mkdir -p build-fuzz/corpus build-fuzz/file_corpus "$artifacts"
cp fuzz/corpus/* build-fuzz/corpus/
cp build-fuzz/fuzz/file_seeds/* build-fuzz/file_corpus/
# fuzz <target> <corpus> <max_len>. One input runs in milliseconds: a minute
# on one is a hang.
fuzz() {
  ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
    "build-fuzz/fuzz/$1" -max_total_time="$seconds" -max_len="$3" -timeout=60 \
    -print_final_stats=1 -artifact_prefix="$artifacts/$1-" "$2"
}
fuzz database_interface_fuzzer build-fuzz/corpus 4096
# Stores on 512-byte pages: the seeds are 13 to 16 pages; room to grow to 32.
# The store is written under TMPDIR: on tmpfs, when there is one, its syncs
# (several per input) cost nothing.
[ -d /dev/shm ] && [ -w /dev/shm ] && export TMPDIR=/dev/shm
fuzz database_interface_file_fuzzer build-fuzz/file_corpus 16384
