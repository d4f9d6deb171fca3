#!/usr/bin/env bash
# From a fresh machine: installs what is missing (Google Benchmark and
# SQLiteCpp on top of the build packages), builds the library and its
# benchmarks in Release twice, and prints the comparison table and the table
# of growing sizes of each build:
#   build-bench/          lib with its own SQLite, compiled in as it ships,
#                         against raw SQLite and SQLiteCpp on the system's;
#   build-bench-system/   lib on the system SQLite
#                         (DATABASE_INTERFACE_SYSTEM_SQLITE), all on one SQLite.
# Arguments go to both tables' program, e.g.
#
#   scripts/run_bench.sh                       full run
#   scripts/run_bench.sh --quick               a rough run
#   scripts/run_bench.sh --sections=memory     only the ":memory:" rows
#
# The Google Benchmark program, build-bench/bench/database_interface_bench,
# runs every workload, variant and medium on its own. Last come the syncs and
# the time per committed write on a real file, per journal mode
# (database_interface_durability_bench, in each build directory;
# scripts/run_durability_bench.sh runs it alone).
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install_bench_deps.sh
scripts/fetch_sqlite.sh
build() {
  cmake -S . -B "$1" -DCMAKE_BUILD_TYPE=Release -DDATABASE_INTERFACE_BUILD_BENCHMARKS=ON \
    -DDATABASE_INTERFACE_BUILD_TESTS=OFF -DDATABASE_INTERFACE_BUILD_EXAMPLES=OFF "${@:2}" >/dev/null
  cmake --build "$1" -j "$(nproc)"
}
build build-bench -DDATABASE_INTERFACE_SYSTEM_SQLITE=OFF
build build-bench-system -DDATABASE_INTERFACE_SYSTEM_SQLITE=ON

echo "Measuring (progress on stderr)..." >&2
echo "## lib with its own SQLite"
echo
build-bench/bench/database_interface_paired "$@"
echo
echo "## lib on the system SQLite"
echo
build-bench-system/bench/database_interface_paired "$@"
echo
echo "## Durability: syncs and time per committed write, on a file in build-bench-system/"
echo
build-bench-system/bench/database_interface_durability_bench build-bench-system
