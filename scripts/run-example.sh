#!/usr/bin/env bash
# Builds ZolInfo and reports on the bundled example model. Extra arguments go to ZolInfo,
# e.g. --extract-data or --ekm-meta-data.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build -j"$(nproc)" --target ZolInfo
build/ZolInfo "$@" examples/wheel.zol
