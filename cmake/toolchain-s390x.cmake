# s390x: a big-endian 64-bit target (cmake/cross.cmake, scripts/cross.sh).
set(CMAKE_SYSTEM_PROCESSOR s390x)
set(ZN_CROSS_ARCH s390x)
set(ZN_CROSS_TRIPLET s390x-linux-gnu)
set(ZN_CROSS_QEMU qemu-s390x)
include(${CMAKE_CURRENT_LIST_DIR}/cross.cmake)
