#!/usr/bin/env bash
# Builds everything with warnings as errors and runs the whole test suite,
# runs the benchmarks briefly, then installs the library into a scratch
# prefix and builds a C consumer against it through pkg-config and through
# find_package(kiv).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh test
jobs=$(nproc)
cmake -S . -B build-test -G Ninja -DCMAKE_BUILD_TYPE=Debug -DKIV_WERROR=ON >/dev/null
cmake --build build-test -j "$jobs"
(cd build-test && ctest --output-on-failure -j "$jobs")
# One short pass of every benchmark: it must build and run; no figure is checked.
scripts/bench.sh --benchmark_min_time=0.01
scripts/check-header.sh
scripts/check-install.sh
scripts/test-aarch64.sh
