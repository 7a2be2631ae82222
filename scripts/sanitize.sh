#!/bin/sh
# Builds the library, its tests and tools with AddressSanitizer and
# UndefinedBehaviorSanitizer (Qt 5) in build/sanitize and runs the tests.
# The first report stops the run and is printed; leaks are reported too.
#
#     scripts/sanitize.sh
#
# Tests that build an outside program against the installed package
# (installed_package, documentation) are left out: that program is not
# instrumented. So is tst_logview: Qt 5.15's offscreen platform plugin leaks
# its screen, and its stack cannot be told apart from the library's without
# slow unwinding, under which the test's CPU budget no longer holds. Known reports from inside Qt are suppressed, narrowly, in
# tests/sanitize/*.supp.
set -eu
cd "$(dirname "$0")/.."
. scripts/common.sh

ensure_packages cmake make g++ pkg-config $(qt_packages 5)

build=build/sanitize
flags="-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer -O1 -g"
cmake -S . -B "$build" -DQTLOG_QT_MAJOR=5 -DQTLOG_WERROR=ON \
      -DCMAKE_BUILD_TYPE=None \
      -DCMAKE_CXX_FLAGS="$flags" \
      -DCMAKE_EXE_LINKER_FLAGS="-fsanitize=address,undefined" \
      -DCMAKE_SHARED_LINKER_FLAGS="-fsanitize=address,undefined"
cmake --build "$build" --parallel "$(nproc)"

supp="$(pwd)/tests/sanitize"
ASAN_OPTIONS="halt_on_error=1:abort_on_error=0:detect_leaks=1:detect_stack_use_after_return=1:strict_string_checks=1:check_initialization_order=1"
UBSAN_OPTIONS="halt_on_error=1:print_stacktrace=1:suppressions=$supp/ubsan.supp"
LSAN_OPTIONS="suppressions=$supp/lsan.supp:print_suppressions=0"
export ASAN_OPTIONS UBSAN_OPTIONS LSAN_OPTIONS
# The stress test runs fewer records per thread under the sanitizers'
# slowdown; it checks them all the same.
QTLOG_STRESS_RECORDS="${QTLOG_STRESS_RECORDS:-10000}"
export QTLOG_STRESS_RECORDS

cd "$build"
ctest --output-on-failure --stop-on-failure --parallel "$(nproc)" \
      -E '^(installed_package|documentation|tst_logview)$'
