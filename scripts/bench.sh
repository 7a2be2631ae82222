#!/bin/sh
# Builds the benchmark and runs it twice: with TZ unset (as on most devices)
# and with TZ set. Arguments go to the program, e.g. --records 50000.
#
#     scripts/bench.sh [--qt4 [PREFIX]|--qt5|--qt6] [--records N] [--rounds R]
set -eu
cd "$(dirname "$0")/.."
. scripts/common.sh
. scripts/bench_common.sh

bench_setup "$@"
shift "$bench_shift"
echo "== TZ unset"
env -u TZ "$bench_bin" "$@"
echo "== TZ=Europe/Berlin"
TZ=Europe/Berlin "$bench_bin" "$@"
