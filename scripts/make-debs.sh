#!/usr/bin/env bash
# Makes the Debian packages libmrl1, libmrl-dev and zolinfo in build-deb/ (or the directory
# given): an optimised build for /usr with the library shared, then cpack.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
dir=${1:-build-deb}
cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr -DBUILD_SHARED_LIBS=ON \
    -DMRL_TESTS=OFF -DMRL_PYTHON=OFF >/dev/null
cmake --build "$dir" -j"$(nproc)" --target Mrl ZolInfo
(cd "$dir" && cpack -G DEB)
