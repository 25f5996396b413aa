#!/usr/bin/env bash
# The stripped size of the shared library and what it needs at run time.
#   scripts/lib-size.sh [BUILD_DIR]   (default: a Release build in build-size, the build
#                                      users get from run-example.sh and the packages)
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-}
if [ -z "$build" ]; then
    build=build-size
    cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DKIV_BUILD_TESTS=OFF \
        >/dev/null
    cmake --build "$build" --target kiv >/dev/null
fi
lib=$(readlink -f "$build/libkiv.so.1")
stripped=$(mktemp)
trap 'rm -f "$stripped"' EXIT
strip -o "$stripped" "$lib"
size=$(stat -c %s "$stripped")
echo "libkiv.so.1 stripped: $size bytes ($((size / 1024)) KiB)"
readelf -d "$stripped" | awk '/NEEDED/ { print "NEEDED " $NF }'
size -A "$stripped" | awk '$2 > 1024 && $1 ~ /^\./ { printf "  %-20s %7d\n", $1, $2 }'
