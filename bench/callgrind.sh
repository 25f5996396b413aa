#!/usr/bin/env bash
# Instruction counts of every benchmark case and its baseline, from one
# callgrind run of the benchmark binary: repeatable where wall-clock time is
# not (a shared machine).  Prints, per case, the instructions of case_X and
# base_X (inclusive, summed over the same number of calls) and their ratio.
#
#   bench/callgrind.sh BUILD_DIR [benchmark filter regex]
set -euo pipefail
build=${1:?usage: $0 BUILD_DIR [FILTER]}
filter=${2:-.}
out=$(mktemp /tmp/kiv_callgrind.XXXXXX)
trap 'rm -f "$out"' EXIT
valgrind --tool=callgrind --callgrind-out-file="$out" \
    "$build/bench/kiv_bench" --benchmark_filter="$filter" --benchmark_min_time=0.001 \
    >/dev/null 2>&1
printf "%-16s %15s %15s %8s\n" case case_Ir base_Ir ratio
callgrind_annotate --inclusive=yes --threshold=100 "$out" 2>/dev/null |
    awk '
    match($0, /:(case|base)_[a-z0-9_]+ \[/) {
        fn = substr($0, RSTART + 1, RLENGTH - 3)
        n = $1; gsub(",", "", n)
        kind = substr(fn, 1, 4); name = substr(fn, 6)
        if (kind == "case") c[name] = n; else b[name] = n
    }
    END {
        for (k in c)
            if (k in b) printf "%-16s %15d %15d %8.3f\n", k, c[k], b[k], c[k] / b[k]
    }' | sort
