# armhf: a 32-bit little-endian target (cmake/cross.cmake, scripts/cross.sh).
set(CMAKE_SYSTEM_PROCESSOR arm)
set(ZN_CROSS_ARCH armhf)
set(ZN_CROSS_TRIPLET arm-linux-gnueabihf)
set(ZN_CROSS_QEMU qemu-arm)
include(${CMAKE_CURRENT_LIST_DIR}/cross.cmake)
