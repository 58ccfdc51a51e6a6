# Cross build for the controller's 32-bit ARM Linux (arm-linux-gnueabihf, Debian's
# g++-arm-linux-gnueabihf). The host dependencies come from the armhf sysroot that
# scripts/arm-sysroot.sh unpacks (default build-arm/sysroot); the C and C++ runtimes from the
# cross toolchain. Programs built here (the tests, also when gtest_discover_tests lists them)
# run under qemu-arm with that sysroot as the root for the ARM loader and libraries.
#
#   scripts/arm-sysroot.sh build-arm/sysroot
#   cmake -S . -B build-arm -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-armhf.cmake
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)

if(NOT AIM_ARM_SYSROOT)
  get_filename_component(AIM_ARM_SYSROOT "${CMAKE_CURRENT_LIST_DIR}/../build-arm/sysroot" ABSOLUTE)
endif()
set(AIM_ARM_SYSROOT "${AIM_ARM_SYSROOT}" CACHE PATH "armhf sysroot with the host dependencies")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES AIM_ARM_SYSROOT)
if(NOT EXISTS "${AIM_ARM_SYSROOT}/usr/lib/arm-linux-gnueabihf")
  message(FATAL_ERROR "No armhf sysroot at ${AIM_ARM_SYSROOT}: run scripts/arm-sysroot.sh ${AIM_ARM_SYSROOT}")
endif()

set(CMAKE_FIND_ROOT_PATH "${AIM_ARM_SYSROOT}" /usr/arm-linux-gnueabihf)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# pkg-config reads the sysroot's .pc files and keeps their /usr/include and /usr/lib flags,
# which it then places below the sysroot.
set(ENV{PKG_CONFIG_LIBDIR} "${AIM_ARM_SYSROOT}/usr/lib/arm-linux-gnueabihf/pkgconfig:${AIM_ARM_SYSROOT}/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_PATH} "")
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${AIM_ARM_SYSROOT}")
set(ENV{PKG_CONFIG_ALLOW_SYSTEM_CFLAGS} 1)
set(ENV{PKG_CONFIG_ALLOW_SYSTEM_LIBS} 1)

# GCC notes on ARM that passing some std iterators changed in GCC 7.1; everything here is
# built with one compiler, so the note says nothing.
set(CMAKE_CXX_FLAGS_INIT "-Wno-psabi")

# The sysroot's libraries need each other (SQLite needs libc ...) at link time; Debian puts
# some (expat) in /lib, which the unpacked sysroot does not merge into /usr/lib.
set(AIM_ARM_RPATH_LINK
  "-Wl,-rpath-link,${AIM_ARM_SYSROOT}/usr/lib/arm-linux-gnueabihf -Wl,-rpath-link,${AIM_ARM_SYSROOT}/lib/arm-linux-gnueabihf")
set(CMAKE_EXE_LINKER_FLAGS_INIT "${AIM_ARM_RPATH_LINK}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${AIM_ARM_RPATH_LINK}")

set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L "${AIM_ARM_SYSROOT}")
