# Toolchain file for a 64-bit ARM board, used by scripts/aarch64. AARCH64_SYSROOT is a Debian file system for arm64 with the
# libraries and headers. qemu runs the programs on this machine.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(AARCH64_SYSROOT "" CACHE PATH "File system of the board")
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES AARCH64_SYSROOT)
set(CMAKE_SYSROOT "${AARCH64_SYSROOT}")
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(CMAKE_FIND_ROOT_PATH "${AARCH64_SYSROOT}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${AARCH64_SYSROOT}")
set(ENV{PKG_CONFIG_LIBDIR}
  "${AARCH64_SYSROOT}/usr/lib/aarch64-linux-gnu/pkgconfig:${AARCH64_SYSROOT}/usr/share/pkgconfig")
set(CMAKE_CROSSCOMPILING_EMULATOR "qemu-aarch64;-L;${AARCH64_SYSROOT}")
