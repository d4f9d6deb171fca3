#!/usr/bin/env bash
# From a fresh machine: installs what is missing (Google Benchmark and
# SQLiteCpp on top of the build packages), builds the library and its
# benchmarks in Release (build-bench/), and prints the comparison table and
# the table of growing sizes. Arguments go to the table's program, e.g.
#
#   scripts/run_bench.sh                       full run, a few minutes
#   scripts/run_bench.sh --quick               a rough run in about a minute
#   scripts/run_bench.sh --sections=memory     only the ":memory:" rows
#
# The Google Benchmark program, build-bench/bench/database_interface_bench,
# runs every workload, variant and medium on its own.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install_bench_deps.sh
scripts/fetch_sqlite.sh
cmake -S . -B build-bench -DCMAKE_BUILD_TYPE=Release -DDATABASE_INTERFACE_BUILD_BENCHMARKS=ON \
  -DDATABASE_INTERFACE_BUILD_TESTS=OFF -DDATABASE_INTERFACE_BUILD_EXAMPLES=OFF >/dev/null
cmake --build build-bench -j "$(nproc)"
echo "Measuring (progress on stderr)..." >&2
build-bench/bench/database_interface_paired "$@"
