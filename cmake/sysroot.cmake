# Tool chain for the boards: Debian's cross compilers with the libraries of a sysroot (scripts/cross makes both).
#   CUEWRIGHT_ARCH     arm64 or armhf
#   CUEWRIGHT_SYSROOT  directory with that architecture's libraries and headers
set(CMAKE_SYSTEM_NAME Linux)
# The compiler checks are projects of their own and read this file, too.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES CUEWRIGHT_ARCH CUEWRIGHT_SYSROOT)
if(CUEWRIGHT_ARCH STREQUAL "arm64")
  set(CMAKE_SYSTEM_PROCESSOR aarch64)
  set(triplet aarch64-linux-gnu)
elseif(CUEWRIGHT_ARCH STREQUAL "armhf")
  set(CMAKE_SYSTEM_PROCESSOR armv7l)
  set(triplet arm-linux-gnueabihf)
else()
  message(FATAL_ERROR "CUEWRIGHT_ARCH: expected arm64 or armhf, found \"${CUEWRIGHT_ARCH}\"")
endif()
set(CMAKE_SYSROOT "${CUEWRIGHT_SYSROOT}")
set(CMAKE_C_COMPILER ${triplet}-gcc)
set(CMAKE_CXX_COMPILER ${triplet}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${triplet})
# Programs are this machine's, all else is the sysroot's.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${CUEWRIGHT_SYSROOT}")
set(ENV{PKG_CONFIG_LIBDIR} "${CUEWRIGHT_SYSROOT}/usr/lib/${triplet}/pkgconfig:${CUEWRIGHT_SYSROOT}/usr/share/pkgconfig")
# Nothing that was built has to run in order to build: tests are given to ctest by name, not by asking them.
