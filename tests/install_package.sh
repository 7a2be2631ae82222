# Sourced by the checks that build against the installed package.
#
# install_package BUILD_DIR WORK_DIR: installs the built library into a
# scratch prefix under WORK_DIR (emptied first) and sets prefix and libdir,
# with LD_LIBRARY_PATH and PKG_CONFIG_PATH pointing there.
install_package() {
    rm -rf "$2"
    mkdir -p "$2"
    prefix="$2/prefix"
    if [ -n "${PKG_CONFIG_SYSROOT_DIR:-}" ]; then
        # Cross builds: pkg-config puts its sysroot in front of every path
        # that does not start with it already. Install into a copy of the
        # sysroot made of links, so that Qt's paths and ours both resolve.
        overlay="$2/sysroot"
        mkdir -p "$overlay"
        for entry in "$PKG_CONFIG_SYSROOT_DIR"/*; do
            ln -s "$entry" "$overlay/"
        done
        export PKG_CONFIG_SYSROOT_DIR="$overlay"
        prefix="$overlay/qtlog-prefix"
    fi
    cmake --install "$1" --prefix "$prefix" >/dev/null
    libdir="$(dirname "$(find "$prefix" -name 'libqtlog.so' | head -n 1)")"
    export LD_LIBRARY_PATH="$libdir${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}"
    export PKG_CONFIG_PATH="$libdir/pkgconfig${PKG_CONFIG_PATH:+:$PKG_CONFIG_PATH}"
}
