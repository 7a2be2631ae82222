#!/bin/sh
# Instructions (callgrind) and heap allocations (memcheck) per record of
# qtlog's roads, with TZ unset. Each figure is the difference between a run
# of 2N and one of N records, divided by N, so start-up costs drop out.
#
#     scripts/callgrind.sh [--qt4 [PREFIX]|--qt5|--qt6] [N]
set -eu
cd "$(dirname "$0")/.."
. scripts/common.sh
. scripts/bench_common.sh

bench_setup "$@"
shift "$bench_shift"
n="${1:-2000}"
unset TZ

instructions() {    # contender records
    valgrind --tool=callgrind --callgrind-out-file=/dev/null "$bench_bin" \
        --only "$1" --records "$2" 2>&1 | sed -n 's/.*Collected : *\([0-9]*\).*/\1/p'
}
allocations() {     # contender records
    valgrind --tool=memcheck "$bench_bin" --only "$1" --records "$2" 2>&1 \
        | sed -n 's/.*total heap usage: *\([0-9,]*\) allocs.*/\1/p' | tr -d ,
}

printf '%-12s %18s %18s\n' contender instructions/record allocations/record
for contender in qtlog qtlog-recorder qtlog-off toLog-off floor; do
    i1=$(instructions "$contender" "$n")
    i2=$(instructions "$contender" $((2 * n)))
    a1=$(allocations "$contender" "$n")
    a2=$(allocations "$contender" $((2 * n)))
    printf '%-12s %18d %18.1f\n' "$contender" $(((i2 - i1) / n)) \
        "$(awk "BEGIN { print ($a2 - $a1) / $n }")"
done
