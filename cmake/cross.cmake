# What the cross toolchains share; a toolchain-ARCH.cmake sets ZN_CROSS_ARCH
# (Debian's name), ZN_CROSS_TRIPLET and ZN_CROSS_QEMU, then includes this.
# Debian's cross compiler brings the target's C and C++ libraries under
# /usr/TRIPLET; scripts/cross.sh unpacks the target's libevent, libblkid and
# GoogleTest packages into build-sysroot/ARCH of the source tree.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${ZN_CROSS_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${ZN_CROSS_TRIPLET}-g++)

set(ZN_CROSS_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../build-sysroot/${ZN_CROSS_ARCH})
get_filename_component(ZN_CROSS_SYSROOT ${ZN_CROSS_SYSROOT} ABSOLUTE)
set(CMAKE_FIND_ROOT_PATH ${ZN_CROSS_SYSROOT} /usr/${ZN_CROSS_TRIPLET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_LIBDIR} ${ZN_CROSS_SYSROOT}/usr/lib/${ZN_CROSS_TRIPLET}/pkgconfig)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${ZN_CROSS_SYSROOT})

# ctest runs the target's binaries under qemu-user, with the target's C
# library and its iconv converters; the unpacked libraries are found through
# the build's RPATH.
set(CMAKE_CROSSCOMPILING_EMULATOR ${ZN_CROSS_QEMU} -L /usr/${ZN_CROSS_TRIPLET}
    -E GCONV_PATH=${ZN_CROSS_SYSROOT}/libc6/usr/lib/${ZN_CROSS_TRIPLET}/gconv)
