# Cross build for the gateway's CPU (32-bit ARM, hard float) with Debian's
# crossbuild-essential-armhf, against the sysroot of scripts/armhf-sysroot.sh
# (ORV_ARMHF_SYSROOT). Test programs run under qemu-arm.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)

if(NOT ORV_ARMHF_SYSROOT)
  set(ORV_ARMHF_SYSROOT $ENV{ORV_ARMHF_SYSROOT})
endif()
set(ORV_ARMHF_LIBS ${ORV_ARMHF_SYSROOT}/usr/lib/arm-linux-gnueabihf)
set(CMAKE_FIND_ROOT_PATH ${ORV_ARMHF_SYSROOT} /usr/arm-linux-gnueabihf)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_EXE_LINKER_FLAGS_INIT "-Wl,-rpath-link,${ORV_ARMHF_LIBS}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-Wl,-rpath-link,${ORV_ARMHF_LIBS}")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "-Wl,-rpath-link,${ORV_ARMHF_LIBS}")

set(ENV{PKG_CONFIG_LIBDIR} ${ORV_ARMHF_LIBS}/pkgconfig:${ORV_ARMHF_SYSROOT}/usr/share/pkgconfig)
set(ENV{PKG_CONFIG_SYSROOT_DIR} "")

# The cross libc first: qemu-arm's -L alone would mix two glibc builds and
# crash at the first thread.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L /usr/arm-linux-gnueabihf
  -E LD_LIBRARY_PATH=/usr/arm-linux-gnueabihf/lib:${ORV_ARMHF_LIBS})
