#!/bin/sh
# Builds the log view example and saves a picture of it, with its load
# generator on, as docs/logview.png. Needs no display: Qt's offscreen
# platform draws the window.
#
#     scripts/logview-screenshot.sh [FILE]
set -eu
cd "$(dirname "$0")/.."
. scripts/common.sh

out="$(pwd)/${1:-docs/logview.png}"
# shellcheck disable=SC2046
ensure_packages cmake make g++ $(qt_packages 5) $(qt_gui_packages 5)
build_project 5 qtlog-logview
cd build/qt5/examples/logview
QT_QPA_PLATFORM=offscreen ./qtlog-logview --generator=100 --screenshot "$out"
echo "== saved $out"
