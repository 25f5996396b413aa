#!/usr/bin/env bash
# Regenerates fuzz/kiv.dict: every key, table and name the loaders know,
# taken from the string literals of the library's sources, plus the syntax
# the scripts are made of.
set -euo pipefail
cd "$(dirname "$0")/.."
{
    echo '# Keys, tables and names the loaders read (fuzz/make-dict.sh).'
    grep -ohE '"[A-Za-z_][A-Za-z0-9_.]*"' src/*/*.cpp src/*/*.h | sort -u | grep -vE '^"(KIV_|kiv_|w|wb|r)"$'
    for t in '=' '{' '}' ',' '"chan_0.main"' '"chan_1.second_1"' 'nil' 'true' 'false' '0x' \
        'function' 'end' 'local' 'return' '..' '2^32' '-1' '1e309' '0/0'; do
        printf '"%s"\n' "$(printf '%s' "$t" | sed 's/"/\\"/g')"
    done
} >fuzz/kiv.dict
wc -l fuzz/kiv.dict
