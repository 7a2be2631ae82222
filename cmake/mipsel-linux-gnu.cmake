# Cross-building for 32-bit little-endian MIPS with Debian's cross compiler
# (g++-mipsel-linux-gnu). Against Qt 5.15, a mipsel sysroot holds Qt and the
# C library, such as the one scripts/mipsel.sh builds with mmdebstrap:
#
#     cmake -S . -B build/mipsel -DCMAKE_TOOLCHAIN_FILE=cmake/mipsel-linux-gnu.cmake \
#           -DQTLOG_SYSROOT=/var/cache/qtlog/mipsel-sysroot
#
# Against a cross-built Qt 4.8, name its qmake (a program of the build
# machine); the C library is then the cross compiler's own unless
# QTLOG_SYSROOT names the device's:
#
#     cmake -S . -B build/mipsel-qt4 -DCMAKE_TOOLCHAIN_FILE=cmake/mipsel-linux-gnu.cmake \
#           -DQTLOG_QT_MAJOR=4 -DQT_QMAKE_EXECUTABLE=/opt/qt4-mipsel/bin/qmake
#
# The host's moc serves the cross build; programs built here (the tests) run
# under qemu-user when it is installed.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR mipsel)
set(CMAKE_LIBRARY_ARCHITECTURE mipsel-linux-gnu)
set(CMAKE_C_COMPILER mipsel-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER mipsel-linux-gnu-g++)

# The compiler checks run with this file too and need the same choices.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES QTLOG_SYSROOT QT_QMAKE_EXECUTABLE)

if(NOT QTLOG_SYSROOT AND NOT QT_QMAKE_EXECUTABLE)
    set(QTLOG_SYSROOT "$ENV{QTLOG_MIPSEL_SYSROOT}")
    if(NOT QTLOG_SYSROOT)
        set(QTLOG_SYSROOT /var/cache/qtlog/mipsel-sysroot)
    endif()
endif()
if(QTLOG_SYSROOT)
    set(CMAKE_SYSROOT "${QTLOG_SYSROOT}")
    set(_qtlog_runtime_root "${QTLOG_SYSROOT}")
else()
    # Debian's cross compiler brings the mipsel C library here.
    set(_qtlog_runtime_root /usr/${CMAKE_LIBRARY_ARCHITECTURE})
    list(APPEND CMAKE_FIND_ROOT_PATH "${_qtlog_runtime_root}")
endif()
if(QT_QMAKE_EXECUTABLE)
    # Qt 4.8 lives where its qmake says, outside any sysroot: searches may
    # look there too.
    execute_process(COMMAND "${QT_QMAKE_EXECUTABLE}" -query QT_INSTALL_PREFIX
                    OUTPUT_VARIABLE _qtlog_qt_prefix OUTPUT_STRIP_TRAILING_WHITESPACE)
    if(_qtlog_qt_prefix)
        list(APPEND CMAKE_FIND_ROOT_PATH "${_qtlog_qt_prefix}")
    endif()
endif()

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Qt 5's moc for the host: the sysroot's own is a mipsel program. (Qt 4's
# qmake names a moc of the build machine already.)
set(QTLOG_HOST_MOC /usr/lib/qt5/bin/moc)

# The emulator finds the C library under its -L root, anything else (a Qt
# installed elsewhere) at its own path.
find_program(QTLOG_QEMU qemu-mipsel)
if(QTLOG_QEMU)
    set(CMAKE_CROSSCOMPILING_EMULATOR "${QTLOG_QEMU};-L;${_qtlog_runtime_root}")
endif()
