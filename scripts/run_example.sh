#!/usr/bin/env bash
# From a fresh machine: installs what is missing, builds the library and runs
# the example host program against the process-wide store in the host's
# default log directory (set BASE_LOG_PATH to choose another one).
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install_deps.sh
scripts/fetch_sqlite.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build build -j "$(nproc)" --target host_demo
build/examples/host_demo
