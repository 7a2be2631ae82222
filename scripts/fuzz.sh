#!/bin/sh
# Builds the libFuzzer harnesses of tests/fuzz with clang (Qt 5,
# AddressSanitizer and UndefinedBehaviorSanitizer) in build/fuzz, replays
# each one's committed corpus, then fuzzes each for SECONDS (default 30).
#
#     scripts/fuzz.sh [SECONDS] [HARNESS...]
#
# Harnesses: fuzz_log_record (the transport header decoder), fuzz_settings
# (the settings parser), fuzz_format (the format language). New inputs go
# to build/fuzz/corpus/<harness>; a crash leaves its input in build/fuzz and
# fails the run. Copy a crash input into tests/fuzz/<harness>/corpus once
# its cause is fixed.
set -eu
seconds="${1:-30}"
[ $# -gt 0 ] && shift
harnesses="${*:-fuzz_log_record fuzz_settings fuzz_format}"
cd "$(dirname "$0")/.."
. scripts/common.sh

ensure_packages cmake make clang libclang-rt-14-dev pkg-config $(qt_packages 5)

build=build/fuzz
flags="-fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer -O1 -g"
cmake -S . -B "$build" -DQTLOG_QT_MAJOR=5 -DQTLOG_WERROR=ON \
      -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
      -DCMAKE_BUILD_TYPE=None -DCMAKE_CXX_FLAGS="$flags" \
      -DCMAKE_EXE_LINKER_FLAGS="-fsanitize=address,undefined" \
      -DCMAKE_SHARED_LINKER_FLAGS="-fsanitize=address,undefined" \
      -DQTLOG_BUILD_TESTS=OFF -DQTLOG_BUILD_EXAMPLES=OFF -DQTLOG_BUILD_FUZZERS=ON
# shellcheck disable=SC2086
cmake --build "$build" --parallel "$(nproc)" --target $harnesses

ASAN_OPTIONS="halt_on_error=1:detect_leaks=1"
UBSAN_OPTIONS="halt_on_error=1:print_stacktrace=1"
export ASAN_OPTIONS UBSAN_OPTIONS
for name in $harnesses; do
    seeds="tests/fuzz/$name/corpus"
    found="$build/corpus/$name"
    mkdir -p "$found"
    echo "== $name: replaying $seeds"
    "$build/tests/fuzz/$name" -runs=0 -artifact_prefix="$build/$name-" "$seeds"
    echo "== $name: fuzzing for $seconds s"
    "$build/tests/fuzz/$name" -max_total_time="$seconds" -max_len=4096 -timeout=10 \
        -artifact_prefix="$build/$name-" -print_final_stats=1 "$found" "$seeds"
done
