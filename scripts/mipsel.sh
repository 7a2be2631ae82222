#!/bin/sh
# Cross-builds qtlog for 32-bit little-endian MIPS (mipsel), runs every test
# under qemu-user and the demo for a few seconds, and prints the size of the
# stripped library against the device's 150 KB flash budget.
#
#     scripts/mipsel.sh [seconds]                            against Debian 12's Qt 5.15
#     scripts/mipsel.sh --qt4 [PREFIX] [--if-found] [seconds]
#                        against the mipsel Qt 4.8 installed at PREFIX (default
#                        $QTLOG_QT4_MIPSEL_PREFIX, else /opt/qt4-mipsel);
#                        with --if-found a missing Qt 4.8 is a skip
#
# The demo runs for [seconds] (default 3).
#
# Qt 5.15: the mipsel sysroot (Qt, the C library) is made once with
# mmdebstrap from Debian's packages and kept outside the clone, in
# $QTLOG_MIPSEL_SYSROOT (default /var/cache/qtlog/mipsel-sysroot); it is made
# again only when missing or when its package list here changes. The build is
# build/mipsel.
#
# Qt 4.8: Debian has none; it is cross-built outside the clone (see README).
# Its bin/qmake runs on the build machine and its bin/moc is the host's. No
# sysroot: the C library is the cross compiler's own (/usr/mipsel-linux-gnu),
# which is also qemu's root; Qt is loaded from its prefix. The build is
# build/mipsel-qt4. The tests that build an outside program against the
# installed package (installed_package, documentation) cross-compile it
# against that Qt and run it under qemu too.
set -eu

qt=5
qt4_prefix="${QTLOG_QT4_MIPSEL_PREFIX:-/opt/qt4-mipsel}"
if_found=no
seconds=3
usage="usage: $0 [--qt4 [PREFIX] [--if-found]] [seconds]"
while [ $# -gt 0 ]; do
    case "$1" in
        --qt4) qt=4 ;;
        --if-found) if_found=yes ;;
        /*|./*|../*) [ "$qt" = 4 ] || { echo "$0: a prefix goes after --qt4" >&2; exit 2; }
                     qt4_prefix="$(cd "$1" 2>/dev/null && pwd || echo "$1")" ;;
        *[!0-9]*|'') echo "$usage" >&2; exit 2 ;;
        *) seconds="$1" ;;
    esac
    shift
done
cd "$(dirname "$0")/.."
. scripts/common.sh

if [ "$qt" = 4 ]; then
    if ! "$qt4_prefix/bin/qmake" -query QT_VERSION 2>/dev/null | grep -q '^4\.8\.'; then
        if [ "$if_found" = yes ]; then
            echo "SKIPPED: Qt 4.8 mipsel leg: no Qt 4.8 at $qt4_prefix (set QTLOG_QT4_MIPSEL_PREFIX to use another)"
            exit 0
        fi
        echo "$0: no Qt 4.8 at $qt4_prefix (its bin/qmake); give its prefix after --qt4" >&2
        exit 1
    fi
    ensure_packages cmake make pkg-config g++-mipsel-linux-gnu qemu-user
    qt_libs="$("$qt4_prefix/bin/qmake" -query QT_INSTALL_LIBS)"
    if ! mipsel-linux-gnu-readelf -h "$qt_libs/libQtCore.so" 2>/dev/null | grep -q 'Machine: *MIPS'; then
        echo "$0: the Qt 4.8 at $qt4_prefix is not built for mipsel ($qt_libs/libQtCore.so)" >&2
        exit 1
    fi
    build=build/mipsel-qt4
    runtime_root=/usr/mipsel-linux-gnu
    label="Qt 4.8"
    qt_args="-DQTLOG_QT_MAJOR=4 -DQT_QMAKE_EXECUTABLE=$qt4_prefix/bin/qmake"
else
    sysroot="${QTLOG_MIPSEL_SYSROOT:-/var/cache/qtlog/mipsel-sysroot}"
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
    build=build/mipsel
    runtime_root="$sysroot"
    label="Qt 5.15"
    qt_args="-DQTLOG_SYSROOT=$sysroot -DQTLOG_QT_MAJOR=5"
fi

# shellcheck disable=SC2086
cmake -S . -B "$build" -DCMAKE_TOOLCHAIN_FILE="$(pwd)/cmake/mipsel-linux-gnu.cmake" \
      $qt_args -DQTLOG_WERROR=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build "$build" --parallel "$(nproc)"
# The stress test runs 8 x 10,000 records under the emulator (50,000 natively).
(cd "$build" && QTLOG_STRESS_RECORDS="${QTLOG_STRESS_RECORDS:-10000}" \
     ctest --output-on-failure --parallel "$(nproc)")

# The library as it would ship: stripped, and without libatomic.
library="$(readlink -f "$build/logging/libqtlog.so")"
mipsel-linux-gnu-strip -o "$build/libqtlog-stripped.so" "$library"
size="$(stat -c %s "$build/libqtlog-stripped.so")"
echo "== stripped mipsel library ($label): $size bytes"
# The device's flash budget is under 150 KB; said here, not yet enforced.
if [ "$size" -ge 153600 ]; then
    echo "== the stripped mipsel library ($label) is over the 150 KB flash budget by $((size - 153599)) bytes"
fi
if mipsel-linux-gnu-readelf -d "$library" | grep NEEDED | grep -q libatomic; then
    echo "the mipsel library needs libatomic" >&2
    exit 1
fi

repo="$(pwd)"
cd "$build/examples/demo"
echo "== qtlog demo ($label) under qemu-mipsel for $seconds s"
rm -f qtlog-demo.log
qemu-mipsel -L "$runtime_root" ./qtlog-demo "$seconds" "$repo/examples/demo/"
grep -q "log stoped" qtlog-demo.log
