#!/usr/bin/env bash
# Builds and runs every test twice: an optimised build, then one with AddressSanitizer and
# UndefinedBehaviorSanitizer; then the public API's suite, threads included, under
# ThreadSanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
jobs=$(nproc)

cmake -S . -B build -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build -j"$jobs"
(cd build && ctest --output-on-failure -j"$jobs")

cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS=-O1 -DMRL_SANITIZE=ON >/dev/null
cmake --build build-asan -j"$jobs"
(cd build-asan && ctest --output-on-failure -j"$jobs")

cmake -S . -B build-tsan -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS=-O1 -DMRL_TSAN=ON >/dev/null
cmake --build build-tsan --target api_tests -j"$jobs"
(cd build-tsan && TSAN_OPTIONS=halt_on_error=1 ctest --output-on-failure -j"$jobs" -R '^Api\.')
