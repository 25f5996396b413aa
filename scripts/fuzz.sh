#!/usr/bin/env bash
# Builds the libFuzzer targets (clang, AddressSanitizer and
# UndefinedBehaviorSanitizer) and runs each for a bounded time.
#   scripts/fuzz.sh [SECONDS_PER_TARGET] [TARGET...]
# CI runs a short pass; a long campaign is e.g. `scripts/fuzz.sh 600`.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh test
seconds=${1:-20}
shift || true
targets=("$@")
[ ${#targets[@]} -gt 0 ] || targets=(multi_chan calib hevc aisp lsp flow)
CC=clang CXX=clang++ cmake -S . -B build-fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DKIV_FUZZ=ON -DKIV_SANITIZE=address,undefined -DKIV_BUILD_TESTS=OFF -DKIV_WERROR=ON >/dev/null
cmake --build build-fuzz -j "$(nproc)"
for t in "${targets[@]}"; do
    corpus=build-fuzz/corpus/$t
    mkdir -p "$corpus"
    seeds=(fuzz/seeds/$t)
    [ "$t" = multi_chan ] && seeds+=(examples fuzz/regressions)
    [ "$t" = lsp ] && seeds=(examples)
    dict=fuzz/kiv.dict
    [ "$t" = flow ] && seeds+=(examples tests/cases/include) && dict=fuzz/flow.dict
    echo "== fuzz_$t for ${seconds}s"
    UBSAN_OPTIONS=halt_on_error=1 build-fuzz/fuzz/fuzz_$t "$corpus" "${seeds[@]}" \
        -artifact_prefix=build-fuzz/ -dict="$dict" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
        -print_final_stats=1 2>&1 | grep -E '^(#|stat::number_of_executed_units|==|SUMMARY|INFO: (Loaded|seed))' | tail -4
    [ "${PIPESTATUS[0]}" -eq 0 ] || { echo "fuzz_$t failed"; exit 1; }
done
