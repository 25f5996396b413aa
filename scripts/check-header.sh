#!/usr/bin/env bash
# The public header is included by C firmware and by C++ applications: it
# must compile cleanly, warnings as errors and pedantic, in every dialect.
set -euo pipefail
cd "$(dirname "$0")/.."
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
printf '#include "kiv.h"\nint kiv_header_probe(void);\nint kiv_header_probe(void) { return (int)sizeof(kiv_multi_chan_cfg); }\n' >"$tmp/probe.c"
cp "$tmp/probe.c" "$tmp/probe.cpp"
fail=0
check() { # compiler, standard, file
    if "$1" -std="$2" -Wall -Wextra -Wpedantic -Werror -Iinclude -c "$3" -o "$tmp/probe.o" 2>"$tmp/err"; then
        echo "ok   $1 -std=$2"
    else
        echo "FAIL $1 -std=$2"; cat "$tmp/err"; fail=1
    fi
}
for cc in gcc clang; do
    command -v "$cc" >/dev/null || { echo "FAIL $cc not installed"; fail=1; continue; }
    for std in c99 c11 c17; do check "$cc" "$std" "$tmp/probe.c"; done
done
for cxx in g++ clang++; do
    command -v "$cxx" >/dev/null || { echo "FAIL $cxx not installed"; fail=1; continue; }
    for std in c++11 c++14 c++17 c++20; do check "$cxx" "$std" "$tmp/probe.cpp"; done
done
exit $fail
