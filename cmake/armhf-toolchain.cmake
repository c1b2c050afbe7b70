# Cross-builds for 32-bit ARM hard float against a sysroot made by tools/armhf-sysroot; what is built
# runs under qemu's user-mode emulation.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)

set(ARMHF_SYSROOT "" CACHE PATH "Made by tools/armhf-sysroot")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ARMHF_SYSROOT)
if(NOT EXISTS "${ARMHF_SYSROOT}/lib/ld-linux-armhf.so.3")
  message(FATAL_ERROR "no armhf sysroot at \"${ARMHF_SYSROOT}\": run tools/armhf-sysroot first")
endif()

set(CMAKE_SYSROOT "${ARMHF_SYSROOT}")
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
# Notes about a change of the calling convention that is older than this project.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_LIBDIR}
    "${ARMHF_SYSROOT}/usr/lib/arm-linux-gnueabihf/pkgconfig:${ARMHF_SYSROOT}/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${ARMHF_SYSROOT}")
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm-static -L "${ARMHF_SYSROOT}")
