#!/bin/sh
# dtd_callgrind.sh - instructions per UTF-8 byte of the definition
# benchmarks, counted by callgrind in ozm_dtd_region of dtd_bench.
#
#   bench/dtd_callgrind.sh [BUILD_DIR] [SIZE_MB]     (defaults: build, 5)
#
# BUILD_DIR must already hold bench/dtd_bench.
set -eu
build=${1:-build}
size=${2:-5}
bench="$build/bench/dtd_bench"
[ -x "$bench" ] || { echo "dtd_callgrind.sh: no $bench; build the dtd_bench target first" >&2; exit 2; }
out=$(mktemp -d /tmp/ozm-dtd-callgrind.XXXXXX)
echo "callgrind: dtd_bench --size $size --once INPUT (collection toggled on ozm_dtd_region)"
for input in doc doc-ignore doc-refs subset modules; do
    valgrind --tool=callgrind --collect-atstart=no --toggle-collect=ozm_dtd_region \
        --callgrind-out-file="$out/callgrind.out.$input" "$bench" --size "$size" --once "$input" \
        >"$out/stdout.$input" 2>"$out/valgrind.$input"
    ir=$(awk '/^totals:/ { print $2; exit }' "$out/callgrind.out.$input")
    bytes=$(awk -F': ' '/^utf8 bytes:/ { print $2; exit }' "$out/stdout.$input")
    awk -v what="$input" -v ir="$ir" -v b="$bytes" \
        'BEGIN { printf "  %-11s %10d bytes %14d Ir %8.2f Ir per byte\n", what, b, ir, ir / b }'
done
echo "callgrind output: $out"
