#!/bin/sh
# Cross-builds qtlog for 32-bit little-endian MIPS (mipsel) against Debian 12's
# Qt 5.15, runs every test under qemu-user and the demo for a few seconds.
#
#     scripts/mipsel.sh [demo seconds]      (default 3)
#
# The mipsel sysroot (Qt, the C library) is made once with mmdebstrap from
# Debian's packages and kept outside the clone, in $QTLOG_MIPSEL_SYSROOT
# (default /var/cache/qtlog/mipsel-sysroot); it is made again only when
# missing or when its package list here changes.
set -eu
cd "$(dirname "$0")/.."
. scripts/common.sh

seconds="${1:-3}"
sysroot="${QTLOG_MIPSEL_SYSROOT:-/var/cache/qtlog/mipsel-sysroot}"
build=build/mipsel
# The sysroot's packages, and what it can do without: nothing in it runs,
# only headers and libraries are read.
packages="libc6-dev,qtbase5-dev"
excludes="/usr/share/doc/* /usr/share/man/* /usr/share/locale/* /usr/share/info/*
/usr/lib/mipsel-linux-gnu/dri/* /usr/lib/mipsel-linux-gnu/libLLVM* /usr/lib/mipsel-linux-gnu/libz3*
/usr/lib/mipsel-linux-gnu/perl* /usr/share/perl* /usr/lib/python3*"

ensure_packages cmake make g++ pkg-config qtbase5-dev-tools \
    g++-mipsel-linux-gnu qemu-user mmdebstrap debian-archive-keyring

stamp="bookworm mipsel $packages $excludes"
if [ "$(cat "$sysroot/.qtlog-sysroot" 2>/dev/null)" != "$stamp" ]; then
    echo "== making the mipsel sysroot in $sysroot (a few minutes)"
    root_cmd=""
    [ "$(id -u)" -eq 0 ] || root_cmd="sudo"
    options=""
    for pattern in $excludes; do
        options="$options --dpkgopt=path-exclude=$pattern"
    done
    $root_cmd rm -rf "$sysroot.new"
    $root_cmd mkdir -p "$(dirname "$sysroot")"
    # shellcheck disable=SC2086
    $root_cmd mmdebstrap --quiet --variant=extract --arch=mipsel --include="$packages" $options \
        bookworm "$sysroot.new" http://deb.debian.org/debian
    echo "$stamp" | $root_cmd tee "$sysroot.new/.qtlog-sysroot" >/dev/null
    $root_cmd rm -rf "$sysroot"
    $root_cmd mv "$sysroot.new" "$sysroot"
fi

cmake -S . -B "$build" -DCMAKE_TOOLCHAIN_FILE="$(pwd)/cmake/mipsel-linux-gnu.cmake" \
      -DQTLOG_SYSROOT="$sysroot" -DQTLOG_QT_MAJOR=5 -DQTLOG_WERROR=ON \
      -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build "$build" --parallel "$(nproc)"
# The stress test runs 8 x 10,000 records under the emulator (50,000 natively).
(cd "$build" && QTLOG_STRESS_RECORDS="${QTLOG_STRESS_RECORDS:-10000}" \
     ctest --output-on-failure --parallel "$(nproc)")

# The library as it would ship: stripped, and without libatomic.
library="$(readlink -f "$build/logging/libqtlog.so")"
mipsel-linux-gnu-strip -o "$build/libqtlog-stripped.so" "$library"
echo "== stripped mipsel library: $(stat -c %s "$build/libqtlog-stripped.so") bytes"
if mipsel-linux-gnu-readelf -d "$library" | grep NEEDED | grep -q libatomic; then
    echo "the mipsel library needs libatomic" >&2
    exit 1
fi

repo="$(pwd)"
cd "$build/examples/demo"
echo "== qtlog demo under qemu-mipsel for $seconds s"
rm -f qtlog-demo.log
qemu-mipsel -L "$sysroot" ./qtlog-demo "$seconds" "$repo/examples/demo/"
grep -q "log stoped" qtlog-demo.log
