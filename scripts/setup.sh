#!/usr/bin/env bash
# Installs what the project needs to build, test and run on Debian 12 (as root).
set -euo pipefail
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq
apt-get install -y -qq --no-install-recommends \
    build-essential cmake pkg-config clang libclang-rt-14-dev \
    libevent-dev libblkid-dev libgtest-dev libgmock-dev googletest libbenchmark-dev \
    iproute2 bridge-utils util-linux e2fsprogs procps kmod iputils-ping iputils-arping udhcpc curl dnsmasq-base \
    python3 \
    >/dev/null
