#!/usr/bin/env bash
# Sets everything up, builds, and runs the agent's main job in a virtual
# gateway: a LAN bridge with hosts whose comings and goings the agent
# publishes in the store.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
bash scripts/build.sh build
exec tools/vgw/vgw run -- bash scripts/demo-gateway.sh
