#!/usr/bin/env bash
# Builds the benchmarks for aarch64 and runs them under qemu-user, a core
# several times slower than this machine's: the largest legitimate scripts
# must still load (the time limit stretches with the measured slowness) and
# the hostile ones still be refused.  Arguments go to the benchmark binary;
# by default the bounds' cases:
#   scripts/bench-aarch64.sh
#   scripts/bench-aarch64.sh --benchmark_filter=calib
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh "$(dpkg --print-architecture)" g++-aarch64-linux-gnu qemu-user
scripts/install-deps.sh arm64 liblua5.3-dev libbenchmark-dev
cmake -S . -B build-bench-aarch64 -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/aarch64-linux-gnu.cmake \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKIV_WERROR=ON -DKIV_BUILD_BENCH=ON \
    -DKIV_BUILD_TESTS=OFF >/dev/null
cmake --build build-bench-aarch64 -j "$(nproc)" --target kiv_bench
[ $# -gt 0 ] || set -- --benchmark_filter='BM_hostile|busy|calib'
qemu-aarch64 -L / build-bench-aarch64/bench/kiv_bench "$@"
