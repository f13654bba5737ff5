#!/usr/bin/env bash
# Sets everything up and runs every check: a normal build with the format and
# clang-tidy checks of src/ and platform/ and its tests, then a build with
# AddressSanitizer and UndefinedBehaviorSanitizer, then the fuzz targets.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
# Each system test runs in a gateway of its own, so two at a time share
# nothing; the few that look at the whole machine are marked RUN_SERIAL.
jobs=$(nproc)
bash scripts/build.sh build
git ls-files -- src platform | grep -E '\.(c|cc|cpp|h|hpp)$' | xargs clang-format --dry-run --Werror
# Every finding fails (.clang-tidy); the report only then.
run-clang-tidy-14 -p build -j"$jobs" -quiet "$PWD/(src|platform)/" >build/clang-tidy.log 2>&1 ||
    { grep -v '^clang-tidy-14 ' build/clang-tidy.log; exit 1; }
(cd build && ctest --output-on-failure -j"$jobs")
bash scripts/build.sh build-asan -DZN_SANITIZE=ON
(cd build-asan && ctest --output-on-failure -j"$jobs")
# Every parser of outside bytes under libFuzzer for a short while, from its corpus.
CC=clang CXX=clang++ bash scripts/build.sh build-fuzz -DZN_FUZZ=ON
(cd build-fuzz && ctest --output-on-failure -j"$jobs" -L fuzz)
