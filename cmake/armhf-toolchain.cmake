# Cross build for the gateway's CPU (32-bit ARM, hard float) with Debian's
# crossbuild-essential-armhf, against the sysroot of scripts/armhf-sysroot.sh
# (ORV_ARMHF_SYSROOT). Test programs run under qemu-arm.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)

# CMake reads this file again for every compiler check, in the same process
# but without the cache: the environment carries the sysroot to those reads,
# which would otherwise point pkg-config at the machine's own folders.
if(NOT ORV_ARMHF_SYSROOT)
  set(ORV_ARMHF_SYSROOT $ENV{ORV_ARMHF_SYSROOT})
endif()
if(NOT ORV_ARMHF_SYSROOT)
  message(FATAL_ERROR "ORV_ARMHF_SYSROOT names no sysroot: run scripts/build-armhf.sh")
endif()
set(ENV{ORV_ARMHF_SYSROOT} ${ORV_ARMHF_SYSROOT})
# Debian 12's packages put some libraries (libcap, liblzma, libgpg-error,
# needed by libsystemd) under /lib, the rest under /usr/lib.
set(ORV_ARMHF_LIBS ${ORV_ARMHF_SYSROOT}/usr/lib/arm-linux-gnueabihf)
set(ORV_ARMHF_BASE_LIBS ${ORV_ARMHF_SYSROOT}/lib/arm-linux-gnueabihf)
set(ORV_ARMHF_LINK_FLAGS "-Wl,-rpath-link,${ORV_ARMHF_LIBS}:${ORV_ARMHF_BASE_LIBS}")
set(CMAKE_FIND_ROOT_PATH ${ORV_ARMHF_SYSROOT} /usr/arm-linux-gnueabihf)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_EXE_LINKER_FLAGS_INIT ${ORV_ARMHF_LINK_FLAGS})
set(CMAKE_SHARED_LINKER_FLAGS_INIT ${ORV_ARMHF_LINK_FLAGS})
set(CMAKE_MODULE_LINKER_FLAGS_INIT ${ORV_ARMHF_LINK_FLAGS})

set(ENV{PKG_CONFIG_LIBDIR} ${ORV_ARMHF_LIBS}/pkgconfig:${ORV_ARMHF_SYSROOT}/usr/share/pkgconfig)
set(ENV{PKG_CONFIG_SYSROOT_DIR} "")

# The cross libc first: qemu-arm's -L alone would mix two glibc builds and
# crash at the first thread.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L /usr/arm-linux-gnueabihf
  -E LD_LIBRARY_PATH=/usr/arm-linux-gnueabihf/lib:${ORV_ARMHF_LIBS}:${ORV_ARMHF_BASE_LIBS})
