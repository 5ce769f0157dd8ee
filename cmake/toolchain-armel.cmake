# Cross-building for the board's CPU, an ARM926EJ-S (ARMv5TE, little-endian, no
# floating point unit), with Debian's armel compiler and the sysroot that
# packaging/make-armel-sysroot.sh makes. MFTOOL_SYSROOT, or the environment's
# MFTOOL_ARMEL_SYSROOT, names the sysroot if it is somewhere else.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv5tel)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabi)

set(CMAKE_CXX_COMPILER arm-linux-gnueabi-g++)
set(CMAKE_C_COMPILER arm-linux-gnueabi-gcc)
# Debian's armel baseline as well; said once more for other compilers.
set(CMAKE_CXX_FLAGS_INIT "-march=armv5te -mtune=arm926ej-s -mfloat-abi=soft")
set(CMAKE_C_FLAGS_INIT "${CMAKE_CXX_FLAGS_INIT}")

if(NOT MFTOOL_SYSROOT)
    if(DEFINED ENV{MFTOOL_ARMEL_SYSROOT})
        set(MFTOOL_SYSROOT $ENV{MFTOOL_ARMEL_SYSROOT})
    else()
        get_filename_component(MFTOOL_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../build-armel-sysroot
            ABSOLUTE)
    endif()
endif()
set(MFTOOL_SYSROOT ${MFTOOL_SYSROOT} CACHE PATH "The board's libraries and headers")
# CMake's trial compilations read this file again, without the cache.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES MFTOOL_SYSROOT)
if(NOT EXISTS ${MFTOOL_SYSROOT}/.complete)
    message(FATAL_ERROR "There is no sysroot in ${MFTOOL_SYSROOT}; "
        "packaging/make-armel-sysroot.sh makes it")
endif()

set(CMAKE_SYSROOT ${MFTOOL_SYSROOT})
set(CMAKE_FIND_ROOT_PATH ${MFTOOL_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# pkg-config finds the sysroot's libraries, never this machine's.
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${MFTOOL_SYSROOT})
set(ENV{PKG_CONFIG_PATH} "")
set(ENV{PKG_CONFIG_LIBDIR}
    ${MFTOOL_SYSROOT}/usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/pkgconfig:${MFTOOL_SYSROOT}/usr/share/pkgconfig)

# Tests run on the board's CPU, emulated, where the emulator is installed.
find_program(MFTOOL_QEMU qemu-arm-static)
if(MFTOOL_QEMU)
    set(CMAKE_CROSSCOMPILING_EMULATOR ${MFTOOL_QEMU} -cpu arm926 -L ${MFTOOL_SYSROOT})
endif()
