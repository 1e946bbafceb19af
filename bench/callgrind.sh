#!/bin/sh
# callgrind.sh - instructions per input byte of UTF-8 decoding, of parsing and
# of both, counted by callgrind on a generated slice of the benchmark document.
#
#   bench/callgrind.sh [BUILD_DIR] [SIZE_MB] [--text] [--plain]   (defaults: build, 5)
#
# --text counts the text-heavy document of long paragraphs instead of the
# data-heavy one; --plain decodes at the decoder's plain level (SSE2 and
# scalar code) instead of the AVX2 one.
# It builds nothing: BUILD_DIR must already hold bench/ozmbench. Each of the
# three runs does its work once between callgrind's start and stop requests
# (ozmbench parse --once, which turns the count of operator new off), or,
# where ozmbench was built without <valgrind/callgrind.h>, inside the
# function collection is toggled on.
# Callgrind's output stays in a new directory under /tmp, printed at the end.
set -eu

build=${1:-build}
size=${2:-5}
opts=""
[ $# -ge 2 ] && shift 2 || shift $#
for opt in "$@"; do
    case $opt in
    --text | --plain) opts="$opts $opt" ;;
    *)
        echo "callgrind.sh: unknown option $opt" >&2
        exit 2
        ;;
    esac
done
bench="$build/bench/ozmbench"
if [ ! -x "$bench" ]; then
    echo "callgrind.sh: no $bench; build the ozmbench target first" >&2
    exit 2
fi
command -v valgrind >/dev/null || { echo "callgrind.sh: valgrind not found" >&2; exit 2; }

out=$(mktemp -d /tmp/ozm-callgrind.XXXXXX)
if [ "$("$bench" --callgrind-support)" = yes ]; then
    region="--instr-atstart=no"
    how="start/stop instrumentation requests around the work"
else
    region="--collect-atstart=no --toggle-collect=ozm_bench_region"
    how="collection toggled on ozm_bench_region"
fi

# Runs one mode; leaves the region's instruction count in $ir and the input
# size in $bytes.
run() {
    mode=$1
    # shellcheck disable=SC2086
    valgrind --tool=callgrind $region --callgrind-out-file="$out/callgrind.out.$mode" \
        "$bench" parse --size "$size" $opts --once "$mode" >"$out/stdout.$mode" 2>"$out/valgrind.$mode"
    ir=$(awk '/^totals:/ { print $2; exit }' "$out/callgrind.out.$mode")
    bytes=$(awk -F': ' '/^utf8 bytes:/ { print $2; exit }' "$out/stdout.$mode")
    if [ -z "$ir" ] || [ -z "$bytes" ]; then
        echo "callgrind.sh: run '$mode' failed; see $out" >&2
        cat "$out/stdout.$mode" >&2
        exit 1
    fi
}

report() {
    awk -v what="$1" -v ir="$ir" -v b="$bytes" \
        'BEGIN { printf "  %-22s %14d Ir   %8.2f Ir per UTF-8 byte\n", what, ir, ir / b }'
}

echo "callgrind: ozmbench parse --size $size$opts --once MODE ($how)"
run decode
echo "input: $bytes bytes of UTF-8, $(awk -F': ' '/^utf16 units:/ { print $2 }' "$out/stdout.decode") UTF-16 units"
report "decode UTF-8"
decode_ir=$ir
run parse
echo "elements: $(awk -F': ' '/^elements:/ { print $2 }' "$out/stdout.parse")"
report "ParseString"
parse_ir=$ir
run both
report "decode + ParseString"
awk -v d="$decode_ir" -v p="$parse_ir" -v b="$ir" \
    'BEGIN { printf "  (separate runs add up to %d Ir; the joint run differs by %+d)\n", d + p, b - (d + p) }'
echo "callgrind output: $out (callgrind_annotate $out/callgrind.out.both)"
