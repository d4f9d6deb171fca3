#!/usr/bin/env bash
# Syncs and wall time per committed write on a real file, per journal mode,
# alone (scripts/run_bench.sh runs it last, after the other tables). Installs
# what the benchmarks need, then builds database_interface_durability_bench on
# the system SQLite: the library shares it with the program and its counting
# VFS, so the library gets rows of its own. Writes go to a file in
# build-bench-system/, which must be on the disk to be measured.
#
#   scripts/run_durability_bench.sh [writes] [runs]   default 300 writes, 1 run
#
# A flush of a virtual disk varies from run to run: compare the medians of
# several runs.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install_bench_deps.sh
cmake -S . -B build-bench-system -DCMAKE_BUILD_TYPE=Release -DDATABASE_INTERFACE_BUILD_BENCHMARKS=ON \
  -DDATABASE_INTERFACE_BUILD_TESTS=OFF -DDATABASE_INTERFACE_BUILD_EXAMPLES=OFF \
  -DDATABASE_INTERFACE_SYSTEM_SQLITE=ON >/dev/null
cmake --build build-bench-system -j "$(nproc)" --target database_interface_durability_bench
# On tmpfs a sync does nothing, and the times would say durability is free.
if [ "$(stat -f -c %T build-bench-system)" = tmpfs ]; then
  echo "build-bench-system/ is on tmpfs: measure on a disk" >&2
  exit 1
fi
for ((run = 1; run <= ${2:-1}; run++)); do
  build-bench-system/bench/database_interface_durability_bench build-bench-system "${1:-300}"
done
