#!/usr/bin/env bash
# Configures and builds one tree: scripts/build.sh DIR [CMAKE ARGS...]
set -euo pipefail
dir=$1; shift
cd "$(dirname "$0")/.."
cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@" >/dev/null
cmake --build "$dir" -j"$(nproc)"
