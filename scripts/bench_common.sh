# Shared by scripts/bench.sh and scripts/callgrind.sh: installs what the
# benchmark needs and builds it. bench_setup ARGS sets bench_bin to the
# program and bench_shift to the number of ARGS it used (the Qt choice).
bench_setup() {
    qt=5
    prefix=/opt/qt4
    bench_shift=0
    case "${1:-}" in
        --qt5) qt=5; bench_shift=1 ;;
        --qt6) qt=6; bench_shift=1 ;;
        --qt4)
            qt=4; bench_shift=1
            case "${2:-}" in /*) prefix="$2"; bench_shift=2 ;; esac ;;
    esac
    packages="cmake make g++ pkg-config valgrind tzdata libspdlog-dev liblog4cxx-dev"
    if [ "$qt" != 4 ]; then
        packages="$packages $(qt_packages "$qt")"
    fi
    # shellcheck disable=SC2086
    ensure_packages $packages
    build="build/bench$qt"
    set -- -DQTLOG_QT_MAJOR="$qt" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQTLOG_BUILD_BENCH=ON \
        -DQTLOG_BUILD_TESTS=OFF -DQTLOG_BUILD_EXAMPLES=OFF
    if [ "$qt" = 4 ]; then
        set -- "$@" -DCMAKE_PREFIX_PATH="$prefix" -DQT_QMAKE_EXECUTABLE="$prefix/bin/qmake"
    fi
    cmake -S . -B "$build" "$@" >/dev/null
    cmake --build "$build" --parallel 2 --target qtlog_bench >/dev/null
    bench_bin="$build/bench/qtlog_bench"
}
