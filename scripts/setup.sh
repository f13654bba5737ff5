#!/usr/bin/env bash
# Installs what the project needs to build, test and run on Debian 12 (as root).
set -euo pipefail
export DEBIAN_FRONTEND=noninteractive
# A mirror caught mid-sync fails one index (often of a foreign architecture);
# the lists it did fetch still serve, and a package truly missing fails below.
apt-get update -qq || apt-get update -qq ||
    echo "setup: apt-get update reported errors; going on with the package lists it has" >&2
apt-get install -y -qq --no-install-recommends \
    build-essential cmake pkg-config clang libclang-rt-14-dev clang-tidy clang-format \
    libevent-dev libblkid-dev libgtest-dev libgmock-dev googletest libbenchmark-dev \
    iproute2 bridge-utils util-linux e2fsprogs procps kmod iputils-ping iputils-arping udhcpc curl dnsmasq-base \
    dosfstools fusefat ntfs-3g jq busybox python3 shellcheck \
    >/dev/null
