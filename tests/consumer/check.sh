#!/bin/sh
# Installs the built library into a scratch prefix, then builds and runs a
# consumer against it twice: with find_package(qtlog) and with pkg-config.
#
#     check.sh BUILD_DIR WORK_DIR CXX EMULATOR [CMAKE_ARG...]
#
# CXX is the compiler with any flags it needs (a cross compiler's sysroot);
# EMULATOR, unless empty, runs the consumer; the CMAKE_ARGs configure the
# consumer's build as the library's was (toolchain, Qt). The pkg-config build
# uses the oldest C++ that the package asks for.
set -eu
build="$1"
work="$2"
cxx="$3"
run="$4"
shift 4
here="$(cd "$(dirname "$0")" && pwd)"

. "$here/../install_package.sh"
install_package "$build" "$work"

# CMake package.
cmake -S "$here" -B "$work/cmake-build" -Dqtlog_DIR="$libdir/cmake/qtlog" "$@" >/dev/null
cmake --build "$work/cmake-build" >/dev/null
$run "$work/cmake-build/consumer" 2>"$work/cmake.out"
grep -q "\[consumer\] linked" "$work/cmake.out"

# pkg-config.
std="$(pkg-config --variable=cxx_std qtlog)"
# shellcheck disable=SC2046,SC2086
$cxx -std=$std -fPIC "$here/main.cpp" -o "$work/consumer-pc" $(pkg-config --cflags --libs qtlog)
$run "$work/consumer-pc" 2>"$work/pc.out"
grep -q "\[consumer\] linked" "$work/pc.out"
echo "installed package found with find_package and pkg-config"
