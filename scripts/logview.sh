#!/bin/sh
# Builds the log view example and starts it, or redraws its picture.
#
#     scripts/logview.sh [--generator[=RATE]]   the window, its settings
#                                               examples/logview/log.conf
#     scripts/logview.sh --screenshot           redraws docs/logview.png
#
# The window needs a display; without one, QT_QPA_PLATFORM=vnc serves it to
# a VNC viewer on port 5900. The picture needs none: Qt's offscreen platform
# draws it, with the load generator on.
set -eu
cd "$(dirname "$0")/.."
. scripts/common.sh

# shellcheck disable=SC2046
ensure_packages cmake make g++ $(qt_packages 5) $(qt_gui_packages 5)
build_project 5 qtlog-logview

repo="$(pwd)"
cd build/qt5/examples/logview
if [ "${1:-}" = --screenshot ]; then
    QT_QPA_PLATFORM=offscreen ./qtlog-logview --generator=100 --screenshot "$repo/docs/logview.png"
    echo "== saved $repo/docs/logview.png"
else
    exec ./qtlog-logview "$@" "$repo/examples/logview/"
fi
