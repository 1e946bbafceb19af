#!/bin/sh
# dtd_callgrind.sh - instructions per UTF-8 byte of the definition
# benchmarks, counted by callgrind in the region of ozmbench_nocount dtd
# --once (the C++ library's operator new, not the counting one).
#
#   bench/dtd_callgrind.sh [BUILD_DIR] [SIZE_MB]     (defaults: build, 5)
#
# BUILD_DIR must already hold bench/ozmbench_nocount.
set -eu
build=${1:-build}
size=${2:-5}
bench="$build/bench/ozmbench_nocount"
[ -x "$bench" ] || { echo "dtd_callgrind.sh: no $bench; build the ozmbench_nocount target first" >&2; exit 2; }
out=$(mktemp -d /tmp/ozm-dtd-callgrind.XXXXXX)
if [ "$("$bench" --callgrind-support)" = yes ]; then
    region="--instr-atstart=no"
    how="start/stop instrumentation requests around the work"
else
    region="--collect-atstart=no --toggle-collect=ozm_bench_region"
    how="collection toggled on ozm_bench_region"
fi
echo "callgrind: ozmbench_nocount dtd --size $size --once INPUT ($how)"
for input in doc doc-ignore doc-refs subset modules; do
    # shellcheck disable=SC2086
    valgrind --tool=callgrind $region --callgrind-out-file="$out/callgrind.out.$input" \
        "$bench" dtd --size "$size" --once "$input" >"$out/stdout.$input" 2>"$out/valgrind.$input"
    ir=$(awk '/^totals:/ { print $2; exit }' "$out/callgrind.out.$input")
    bytes=$(awk -F': ' '/^utf8 bytes:/ { print $2; exit }' "$out/stdout.$input")
    awk -v what="$input" -v ir="$ir" -v b="$bytes" \
        'BEGIN { printf "  %-11s %10d bytes %14d Ir %8.2f Ir per byte\n", what, b, ir, ir / b }'
done
echo "callgrind output: $out"
