# Cross build for the camera's processor (ARMv7, hard float, glibc) with Debian's
# g++-arm-linux-gnueabihf. Libraries that Debian's cross toolchain lacks (libpcap and its
# dependencies, libedit) come from an armhf folder made by dev/armhf-sysroot with
# `apt-get download` and `dpkg-deb -x`. Tests run under qemu-arm.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
# GCC notes on every function that passes certain structures by value that their passing changed
# in GCC 7.1 (-Wpsabi). That matters only when objects from compilers on both sides of 7.1 are
# linked together; here one compiler builds everything, and the notes would bury a real warning.
#
# The Hi3516A and Hi3516D are Cortex-A7 cores, which divide in hardware: built for them, the code
# divides with one instruction instead of calling libgcc's division routines (1.2 KB of the
# library, and slower).
set(CMAKE_C_FLAGS_INIT "-Wno-psabi -mcpu=cortex-a7")
set(CMAKE_CXX_FLAGS_INIT "-Wno-psabi -mcpu=cortex-a7")

set(CLIDRIVER_ARMHF_SYSROOT "${CMAKE_CURRENT_LIST_DIR}/../build/armhf-sysroot"
    CACHE PATH "armhf folder with libpcap and the other target libraries")
get_filename_component(CLIDRIVER_ARMHF_SYSROOT "${CLIDRIVER_ARMHF_SYSROOT}" ABSOLUTE)

set(CMAKE_FIND_ROOT_PATH /usr/arm-linux-gnueabihf "${CLIDRIVER_ARMHF_SYSROOT}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# pkg-config reads the armhf folder's .pc files (libpcap's), and prefixes the paths they give
# with the folder.
set(ENV{PKG_CONFIG_LIBDIR}
    "${CLIDRIVER_ARMHF_SYSROOT}/usr/lib/arm-linux-gnueabihf/pkgconfig:${CLIDRIVER_ARMHF_SYSROOT}/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${CLIDRIVER_ARMHF_SYSROOT}")

set(_armhf_libs "${CLIDRIVER_ARMHF_SYSROOT}/usr/lib/arm-linux-gnueabihf:${CLIDRIVER_ARMHF_SYSROOT}/lib/arm-linux-gnueabihf")
add_link_options("-Wl,-rpath-link,${_armhf_libs}")
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L /usr/arm-linux-gnueabihf -E "LD_LIBRARY_PATH=${_armhf_libs}")
