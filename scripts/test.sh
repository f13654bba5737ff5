#!/usr/bin/env bash
# Sets everything up and runs every test: a normal build, then a build with
# AddressSanitizer and UndefinedBehaviorSanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
bash scripts/build.sh build
(cd build && ctest --output-on-failure)
bash scripts/build.sh build-asan -DZN_SANITIZE=ON
(cd build-asan && ctest --output-on-failure)
# Every parser of outside bytes under libFuzzer for a short while, from its corpus.
CC=clang CXX=clang++ bash scripts/build.sh build-fuzz -DZN_FUZZ=ON
(cd build-fuzz && ctest --output-on-failure -L fuzz)
