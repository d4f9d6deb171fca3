#!/usr/bin/env bash
# From a fresh machine: installs what is missing, configures, builds and runs
# every test under CTest. Exits non-zero when any test fails.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install_deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build build -j "$(nproc)"
ctest --test-dir build --output-on-failure -j "$(nproc)"
