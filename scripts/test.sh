#!/bin/sh
# Installs whatever is missing, builds qtlog with its tests and runs them.
#
#     scripts/test.sh                   against Qt 5 (the default build)
#     scripts/test.sh --qt6             against Qt 6
#     scripts/test.sh --qt4 [PREFIX]    against the Qt 4.8 installed at PREFIX
#                                       (default $QTLOG_QT4_PREFIX, else /opt/qt4)
#     scripts/test.sh --qt4 --if-found  the same, but a missing Qt 4.8 is a skip
set -eu

qt=5
qt4_prefix="${QTLOG_QT4_PREFIX:-/opt/qt4}"
if_found=no
while [ $# -gt 0 ]; do
    case "$1" in
        --qt5) qt=5 ;;
        --qt6) qt=6 ;;
        --qt4) qt=4 ;;
        --if-found) if_found=yes ;;
        /*|./*|../*) [ "$qt" = 4 ] || { echo "$0: a prefix goes after --qt4" >&2; exit 2; }
                     qt4_prefix="$(cd "$1" 2>/dev/null && pwd || echo "$1")" ;;
        *) echo "usage: $0 [--qt5 | --qt6 | --qt4 [PREFIX] [--if-found]]" >&2; exit 2 ;;
    esac
    shift
done
cd "$(dirname "$0")/.."
. scripts/common.sh

if [ "$qt" = 4 ] && ! "$qt4_prefix/bin/qmake" -query QT_VERSION 2>/dev/null | grep -q '^4\.8\.'; then
    if [ "$if_found" = yes ]; then
        echo "SKIPPED: Qt 4.8 leg: no Qt 4.8 at $qt4_prefix (set QTLOG_QT4_PREFIX to use another)"
        exit 0
    fi
    echo "$0: no Qt 4.8 at $qt4_prefix (its bin/qmake); give its prefix after --qt4" >&2
    exit 1
fi

# shellcheck disable=SC2046
ensure_packages cmake make g++ pkg-config $(qt_packages "$qt") $(qt_gui_packages "$qt")
# The syslog test runs a real rsyslogd; it needs root, and skips without it.
if [ "$(id -u)" -eq 0 ]; then
    ensure_packages rsyslog util-linux
fi
build_project "$qt"
cd "build/qt$qt"
ctest --output-on-failure --parallel "$(nproc)"
