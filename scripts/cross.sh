#!/usr/bin/env bash
# Cross-builds the agent, the platform stand-in and the unit tests for a
# gateway-like CPU and runs the unit tests under qemu-user (as root, Debian 12):
#   scripts/cross.sh s390x     big-endian, 64-bit
#   scripts/cross.sh armhf     little-endian, 32-bit
# Then it builds the agent for a firmware image against the stand-in's
# vendor-sdk component and prints the installed programs' stripped sizes.
# The target's libevent, libblkid and GoogleTest are Debian's packages of that
# architecture, unpacked into build-sysroot/ARCH instead of installed: an
# install would need the same version as the build machine's own copy, and the
# archive does not always carry it for every architecture.
set -euo pipefail
arch=${1:-}
case $arch in
    s390x) triplet=s390x-linux-gnu ;;
    armhf) triplet=arm-linux-gnueabihf ;;
    *) echo "usage: scripts/cross.sh s390x|armhf" >&2; exit 2 ;;
esac
cd "$(dirname "$0")/.."
export DEBIAN_FRONTEND=noninteractive
apt=(apt-get -qq -o DPkg::Lock::Timeout=600 -o APT::Sandbox::User=root)

dpkg --add-architecture "$arch"
# An index caught in a mirror's sync fails alone; what is needed here resolves from the others.
"${apt[@]}" update || echo "cross.sh: some package indexes failed; going on with the rest" >&2
"${apt[@]}" install -y --no-install-recommends cmake make pkg-config qemu-user "g++-$triplet" >/dev/null

sysroot=build-sysroot/$arch
rm -rf "$sysroot"
mkdir -p "$sysroot/debs"
(cd "$sysroot/debs" &&
    "${apt[@]}" download libevent-dev:"$arch" libevent-2.1-7:"$arch" libblkid-dev:"$arch" \
        libblkid1:"$arch" libgtest-dev:"$arch" libgmock-dev:"$arch")
for deb in "$sysroot"/debs/*.deb; do dpkg-deb -x "$deb" "$sysroot"; done
# The cross C library lacks iconv's converters: the tests take the target's own.
(cd "$sysroot/debs" && "${apt[@]}" download libc6:"$arch")
dpkg-deb -x "$sysroot"/debs/libc6_*.deb "$sysroot/libc6"

build=build-$arch
bash scripts/build.sh "$build" --no-warn-unused-cli -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-$arch.cmake
(cd "$build" && ctest --output-on-failure)

echo "stripped sizes on $arch (bytes):"
for f in "$build"/bin/zn_event_agent "$build"/lib/*.so; do
    "$triplet-strip" -o "$build/stripped" "$f"
    printf '  %-16s %8d\n' "$(basename "$f")" "$(stat -c %s "$build/stripped")"
done
rm -f "$build/stripped"

# The stand-in's vendor-sdk component goes into the sysroot, where a firmware
# build finds it as it would the vendor's; the firmware build, in the two
# build types of a gateway, is installed into a root tree. The SDK's libraries
# find theirs (libblkid) through -rpath-link.
cmake --install "$build" --component vendor-sdk --prefix "$sysroot/usr" >/dev/null
echo "installed firmware build on $arch, stripped (bytes):"
for type in RelWithDebInfo MinSizeRel; do
    fw=$build-firmware-$type
    cmake -S . -B "$fw" --no-warn-unused-cli -DCMAKE_TOOLCHAIN_FILE="cmake/toolchain-$arch.cmake" -DZN_PLATFORM=firmware \
        -DCMAKE_BUILD_TYPE=$type -DCMAKE_EXE_LINKER_FLAGS="-Wl,-rpath-link,$PWD/$sysroot/usr/lib/$triplet" >/dev/null
    cmake --build "$fw" -j"$(nproc)"
    rm -rf "$fw/root"
    DESTDIR=$PWD/$fw/root cmake --install "$fw" --prefix /usr >/dev/null
    if readelf -d "$fw/root/usr/sbin/zn_event_agent" | grep -E 'NEEDED.*(libstdc\+\+|libgcc_s)'; then
        echo "cross.sh: the installed agent needs the C++ runtime" >&2
        exit 1
    fi
    for f in "$fw"/root/usr/sbin/zn_event_agent "$fw"/root/usr/bin/znhosts; do
        "$triplet-strip" -o "$fw/stripped" "$f"
        printf '  %-16s %-14s %8d\n' "$(basename "$f")" "$type" "$(stat -c %s "$fw/stripped")"
    done
    rm -f "$fw/stripped"
done
