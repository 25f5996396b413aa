#!/usr/bin/env bash
# The mutation check: applies each fault of scripts/mutations.txt (to the
# library in src/ or include/, or to the tool in tools/) alone, builds, runs
# the suite, and says whether a test caught it; the sources are restored
# after each.
#   scripts/mutate.sh [PATTERN]          every fault whose description or file
#                                        holds PATTERN (all without one: tools/
#                                        takes the tool's), the whole suite
#   scripts/mutate.sh --quick [PATTERN]  the faults of the tool only, each
#                                        against the tool's tests (below)
# Prints "caught" or "MISSED" per fault and a closing "N caught, M missed".
# A fault that no longer applies (its text is gone) stops the run
# (Mutations.EveryFaultStillApplies says so first).  On two cores, 15 to 20
# s per fault that a test catches (the run stops at the first failing
# test), up to a minute for one that is missed; run it in a checkout you
# are not editing.
#
# --quick runs the tests labelled `tool` (the library's own tests cannot see
# a fault of the tool: they neither link it nor run it) except the
# evaluator's long runs (Flow.*) and the page in Chromium (layout_html),
# none of which looks at what the faults of the tool's list break.  A fault
# that only those would catch shows as MISSED: the quick mode never counts
# a catch the whole suite would not.
set -euo pipefail
cd "$(dirname "$0")/.."
quick=
if [ "${1:-}" = --quick ]; then
    quick=1
    shift
fi
build=build-mutate
tests=()
[ -z "$quick" ] || tests=(-L '^tool$' -E '^(Flow\.|layout_html$)')
jobs=$(nproc)
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DKIV_WERROR=ON >/dev/null
cmake --build "$build" -j "$jobs" >/dev/null
(cd "$build" && ctest -j "$jobs" --timeout 60 "${tests[@]}" >/dev/null) ||
    { echo "the suite fails without any fault: fix that first"; exit 2; }
exec python3 - "$build" "${1:-}" "$quick" "${tests[@]}" <<'PY'
import os, subprocess, sys, time

build, pattern, quick, tests = sys.argv[1], sys.argv[2], sys.argv[3], sys.argv[4:]
jobs = str(os.cpu_count() or 2)

def unescape(s):
    out, i = [], 0
    while i < len(s):
        if s[i] == '\\' and i + 1 < len(s):
            out.append({'n': '\n', 't': '\t', '\\': '\\'}.get(s[i + 1], s[i + 1]))
            i += 2
        else:
            out.append(s[i])
            i += 1
    return ''.join(out)

def quiet(cmd, cwd=None):
    return subprocess.run(cmd, cwd=cwd, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL).returncode == 0

caught = missed = 0
start = time.monotonic()
for line in open('scripts/mutations.txt'):
    line = line.rstrip('\n')
    if not line or line.startswith('#'):
        continue
    path, find, repl, what = line.split('\t')
    if (pattern and pattern not in what and pattern not in path) or (quick and not path.startswith('tools/')):
        continue
    find, repl = unescape(find), unescape(repl)
    text = open(path).read()
    if text.count(find) != 1:
        sys.exit(f"{path}: the text of '{what}' occurs {text.count(find)} times")
    open(path, 'w').write(text.replace(find, repl))
    try:
        if not quiet(['cmake', '--build', build, '-j', jobs]):
            result = 'caught (does not build)'
        elif quiet(['ctest', '-j', jobs, '--timeout', '60', '--stop-on-failure'] + tests, cwd=build):
            result = 'MISSED'
        else:
            result = 'caught'
    finally:
        open(path, 'w').write(text)
    if result == 'MISSED':
        missed += 1
    else:
        caught += 1
    print(f"{result:<24} {path}: {what}", flush=True)
quiet(['cmake', '--build', build, '-j', jobs])
print(f"{caught} caught, {missed} missed ({time.monotonic() - start:.0f} s)")
PY
