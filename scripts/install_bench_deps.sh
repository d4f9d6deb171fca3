#!/usr/bin/env bash
# Installs what the benchmarks need on top of the build and test packages:
# Google Benchmark and SQLiteCpp (the comparison baseline). With "profile",
# also perf and valgrind, to see where a call spends its time.
set -euo pipefail
cd "$(dirname "$0")/.."

extra=(libbenchmark-dev libsqlitecpp-dev)
[ "${1:-}" = "profile" ] && extra+=(linux-perf valgrind)
scripts/install_deps.sh "${extra[@]}"
