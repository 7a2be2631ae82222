# Cross-building for 32-bit little-endian MIPS with Debian's cross compiler
# (g++-mipsel-linux-gnu) against a mipsel sysroot that holds Qt and the C
# library, such as the one scripts/mipsel.sh builds with mmdebstrap:
#
#     cmake -S . -B build/mipsel -DCMAKE_TOOLCHAIN_FILE=cmake/mipsel-linux-gnu.cmake \
#           -DQTLOG_SYSROOT=/var/cache/qtlog/mipsel-sysroot
#
# The host's moc serves the cross build; programs built here (the tests) run
# under qemu-user when it is installed.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR mipsel)
set(CMAKE_LIBRARY_ARCHITECTURE mipsel-linux-gnu)
set(CMAKE_C_COMPILER mipsel-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER mipsel-linux-gnu-g++)

if(NOT QTLOG_SYSROOT)
    set(QTLOG_SYSROOT "$ENV{QTLOG_MIPSEL_SYSROOT}")
endif()
if(NOT QTLOG_SYSROOT)
    set(QTLOG_SYSROOT /var/cache/qtlog/mipsel-sysroot)
endif()
# The compiler checks run with this file too and need the same sysroot.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES QTLOG_SYSROOT)
set(CMAKE_SYSROOT "${QTLOG_SYSROOT}")

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Qt's moc for the host: the sysroot's own is a mipsel program.
set(QTLOG_HOST_MOC /usr/lib/qt5/bin/moc)

find_program(QTLOG_QEMU qemu-mipsel)
if(QTLOG_QEMU)
    set(CMAKE_CROSSCOMPILING_EMULATOR "${QTLOG_QEMU};-L;${QTLOG_SYSROOT}")
endif()
