# Shared by the scripts: installs missing Debian packages, configures and
# builds the project. Source it from the repository root.

# ensure_packages PKG...: installs those of PKG that are not installed yet,
# as root or through sudo. Refreshes the package lists only when needed.
ensure_packages() {
    missing=""
    for pkg in "$@"; do
        if ! dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q "install ok installed"; then
            missing="$missing $pkg"
        fi
    done
    [ -z "$missing" ] && return 0

    if [ "$(id -u)" -eq 0 ]; then
        as_root=""
    elif command -v sudo >/dev/null 2>&1; then
        as_root="sudo"
    else
        echo "These packages are missing and neither root nor sudo is available:$missing" >&2
        exit 1
    fi
    echo "Installing:$missing"
    # shellcheck disable=SC2086
    if ! $as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends $missing; then
        $as_root apt-get update -q
        $as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends $missing
    fi
}

# qt_packages 4|5|6: the Debian packages that building against that Qt needs
# (Debian has no Qt 4: it comes from elsewhere, see README).
qt_packages() {
    case "$1" in
        4) ;;
        5) echo "qtbase5-dev" ;;
        6) echo "qt6-base-dev qt6-base-dev-tools" ;;
        *) echo "unknown Qt version '$1'" >&2; exit 2 ;;
    esac
}

# qt_gui_packages 4|5|6: what the log view example and its test need beyond
# the build: Qt's offscreen platform plugin and a font to draw with.
qt_gui_packages() {
    case "$1" in
        5) echo "libqt5gui5 fonts-dejavu-core" ;;
        6) echo "libqt6gui6 fonts-dejavu-core" ;;
    esac
}

# build_project 4|5|6 [TARGET]: configures build/qt<N> and builds TARGET (all
# by default). For Qt 4, qt4_prefix names the Qt 4.8 installation.
build_project() {
    qt="$1"
    build="build/qt$qt"
    qt_args=""
    [ "$qt" = 4 ] && qt_args="-DQT_QMAKE_EXECUTABLE=$qt4_prefix/bin/qmake"
    # shellcheck disable=SC2086
    cmake -S . -B "$build" -DQTLOG_QT_MAJOR="$qt" -DQTLOG_WERROR=ON \
          -DCMAKE_BUILD_TYPE=RelWithDebInfo $qt_args
    if [ -n "${2:-}" ]; then
        cmake --build "$build" --parallel "$(nproc)" --target "$2"
    else
        cmake --build "$build" --parallel "$(nproc)"
    fi
}
