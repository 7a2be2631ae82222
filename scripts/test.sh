#!/bin/sh
# Installs whatever is missing, builds qtlog with its tests and runs them.
#
#     scripts/test.sh          against Qt 5 (the default build)
#     scripts/test.sh --qt6    against Qt 6
set -eu
cd "$(dirname "$0")/.."
. scripts/common.sh

qt=5
for arg in "$@"; do
    case "$arg" in
        --qt5) qt=5 ;;
        --qt6) qt=6 ;;
        *) echo "usage: $0 [--qt5|--qt6]" >&2; exit 2 ;;
    esac
done

# shellcheck disable=SC2046
ensure_packages cmake make g++ pkg-config $(qt_packages "$qt")
build_project "$qt"
cd "build/qt$qt"
ctest --output-on-failure --parallel "$(nproc)"
