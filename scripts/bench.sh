#!/usr/bin/env bash
# Builds the benchmarks (the default build type, RelWithDebInfo) and runs
# them; arguments go to the benchmark binary, e.g.
#   scripts/bench.sh --benchmark_repetitions=5
# CI runs them briefly (scripts/test.sh) so that they keep building and
# running; figures are never checked there.
set -euo pipefail
cd "$(dirname "$0")/.."
cmake -S . -B build-bench -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKIV_WERROR=ON \
    -DKIV_BUILD_BENCH=ON -DKIV_BUILD_TESTS=OFF >/dev/null
cmake --build build-bench -j "$(nproc)" --target kiv_bench
build-bench/bench/kiv_bench "$@"
