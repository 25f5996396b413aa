#!/usr/bin/env bash
# The mutation check: applies each fault of scripts/mutations.txt to src/
# or include/ alone, builds, runs the whole suite, and says whether a test
# caught it; the sources are restored after each.
#   scripts/mutate.sh [PATTERN]    only the faults whose description matches
# Prints "caught" or "MISSED" per fault and a closing "N caught, M missed".
# A fault that no longer applies (its text is gone) stops the run.  About
# half a minute per fault on two cores.
set -euo pipefail
cd "$(dirname "$0")/.."
pattern=${1:-}
build=build-mutate
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DKIV_WERROR=ON >/dev/null
cmake --build "$build" -j "$(nproc)" >/dev/null
(cd "$build" && ctest -j "$(nproc)" --timeout 120 >/dev/null) ||
    { echo "the suite fails without any fault: fix that first"; exit 2; }

backup=$(mktemp -d)
trap 'rm -rf "$backup"' EXIT
caught=0
missed=0
while IFS=$'\t' read -r file find replace what; do
    case $file in '#'* | '') continue ;; esac
    [ -z "$pattern" ] || [[ $what == *$pattern* ]] || continue
    cp "$file" "$backup/file"
    python3 - "$file" "$find" "$replace" <<'PY' || { cp "$backup/file" "$file"; exit 2; }
import sys
def unescape(s):
    out, i = [], 0
    while i < len(s):
        if s[i] == '\\' and i + 1 < len(s):
            out.append({'n': '\n', 't': '\t', '\\': '\\'}.get(s[i + 1], s[i + 1])); i += 2
        else:
            out.append(s[i]); i += 1
    return ''.join(out)
path, find, repl = sys.argv[1], unescape(sys.argv[2]), unescape(sys.argv[3])
text = open(path).read()
if text.count(find) != 1:
    sys.exit(f"{path}: the fault's text occurs {text.count(find)} times: {find!r}")
open(path, 'w').write(text.replace(find, repl))
PY
    if ! cmake --build "$build" -j "$(nproc)" >/dev/null 2>&1; then
        result="caught (does not build)"
        caught=$((caught + 1))
    elif (cd "$build" && ctest -j "$(nproc)" --timeout 120 --stop-on-failure >/dev/null 2>&1); then
        result="MISSED"
        missed=$((missed + 1))
    else
        result="caught"
        caught=$((caught + 1))
    fi
    cp "$backup/file" "$file"
    printf '%-24s %s: %s\n' "$result" "$file" "$what"
done <scripts/mutations.txt
cmake --build "$build" -j "$(nproc)" >/dev/null
echo "$caught caught, $missed missed"
