#!/bin/sh
# Installs the built library into a scratch prefix, then builds and runs a
# consumer against it twice: with find_package(qtlog) and with pkg-config.
#
#     check.sh BUILD_DIR WORK_DIR QT_MAJOR
set -eu
build="$1"
work="$2"
qt="$3"
here="$(cd "$(dirname "$0")" && pwd)"

rm -rf "$work"
mkdir -p "$work"
prefix="$work/prefix"
cmake --install "$build" --prefix "$prefix" >/dev/null

libdir="$(dirname "$(find "$prefix" -name 'libqtlog.so' | head -n 1)")"
export LD_LIBRARY_PATH="$libdir${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}"

# CMake package.
cmake -S "$here" -B "$work/cmake-build" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/cmake-build" >/dev/null
"$work/cmake-build/consumer" 2>"$work/cmake.out"
grep -q "\[consumer\] linked" "$work/cmake.out"

# pkg-config.
std=c++11
[ "$qt" = 6 ] && std=c++17
export PKG_CONFIG_PATH="$libdir/pkgconfig"
# shellcheck disable=SC2046
g++ -std=$std -fPIC "$here/main.cpp" -o "$work/consumer-pc" $(pkg-config --cflags --libs qtlog)
"$work/consumer-pc" 2>"$work/pc.out"
grep -q "\[consumer\] linked" "$work/pc.out"
echo "installed package found with find_package and pkg-config"
