#!/usr/bin/env bash
# The main job: builds the library, loads the shipped example configuration
# and writes it back in canonical form, then loads that dump again.
#   scripts/run-example.sh [CONFIG.lua]
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh build
config=${1:-examples/single_1080p.lua}
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=Release -DKIV_BUILD_TESTS=OFF >/dev/null
cmake --build build
out=build/$(basename "${config%.lua}").dump.lua
build/kiv_load "$config" "$out"
echo "--- $out"
cat "$out"
echo "--- loading $out again"
build/kiv_load "$out" >/dev/null
