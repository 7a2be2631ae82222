#!/bin/sh
# Installs whatever is missing, builds the demo and runs it.
#
#     scripts/demo.sh [seconds]     (default 10)
#
# The demo reads examples/demo/log.conf: edit it while the demo runs and the
# change takes effect within 5 seconds. Its log file is
# build/qt5/examples/demo/qtlog-demo.log.
set -eu
cd "$(dirname "$0")/.."
. scripts/common.sh

seconds="${1:-10}"
# shellcheck disable=SC2046
ensure_packages cmake make g++ $(qt_packages 5)
build_project 5 qtlog-demo

repo="$(pwd)"
cd build/qt5/examples/demo
echo "== qtlog demo for $seconds s: settings $repo/examples/demo/log.conf," \
     "log file $(pwd)/qtlog-demo.log"
exec ./qtlog-demo "$seconds" "$repo/examples/demo/"
