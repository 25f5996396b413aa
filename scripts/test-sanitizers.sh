#!/usr/bin/env bash
# The whole test suite under AddressSanitizer and UndefinedBehaviorSanitizer
# (any report fails the run), then under valgrind memcheck (zero errors, zero
# leaks).  The sanitizers are asked for both ways a build can be given them:
# here through CMake's own flags, as distributions and fuzzing services do,
# for ThreadSanitizer below (and the fuzz build) through KIV_SANITIZE.
# The sanitizer suite is built with clang, the test command's with gcc: the
# golden cases compare the log byte for byte, so both compilers must give
# the same log.  (Clang's check of the type of a function called through a
# pointer is left out: its runtime is C++, which the C programs built
# against the library do not link.)
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh test
jobs=$(nproc)
asan="-fsanitize=address,undefined -fno-sanitize=function -fno-sanitize-recover=all -fno-omit-frame-pointer"
CC=clang CXX=clang++ cmake -S . -B build-asan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DKIV_WERROR=ON -DKIV_SANITIZE= \
    -DCMAKE_C_FLAGS="$asan" -DCMAKE_CXX_FLAGS="$asan" -DCMAKE_EXE_LINKER_FLAGS="$asan" \
    -DCMAKE_SHARED_LINKER_FLAGS="$asan" >/dev/null
cmake --build build-asan -j "$jobs"
(cd build-asan && ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
    ctest --output-on-failure -j "$jobs")

# Concurrent loads under ThreadSanitizer: the library's, a thread with a log
# level of its own, the tool checking and linting files side by side, and the
# editor server with its reading and checking threads.
cmake -S . -B build-tsan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DKIV_WERROR=ON \
    -DKIV_SANITIZE=thread >/dev/null
cmake --build build-tsan -j "$jobs" --target kiv_tests kiv_tool_tests
TSAN_OPTIONS=halt_on_error=1 build-tsan/tests/kiv_tests --gtest_filter='Threads.*:Any.AThread*' \
    --gtest_brief=1
TSAN_OPTIONS=halt_on_error=1 build-tsan/tools/kiv/tests/kiv_tool_tests --gtest_brief=1 \
    --gtest_filter='Cases.GiveWhatTheirOutFileSays/tool_check:Cases.GiveWhatTheirOutFileSays/tool_lint:Cli.Parallel*:LspServe.*'

# valgrind on the plain debug build of the test command (the wrong-type
# variants, thousands of loads, the hostile scripts that run to their bounds
# and the concurrency test, whose threads valgrind runs one at a time, run
# under the sanitizers above instead; the stack measurements run loads on
# painted stacks of their own, which valgrind takes for freed memory once a
# load has left them).
cmake -S . -B build-test -G Ninja -DCMAKE_BUILD_TYPE=Debug -DKIV_WERROR=ON >/dev/null
cmake --build build-test -j "$jobs"
valgrind --quiet --error-exitcode=1 --leak-check=full --errors-for-leak-kinds=definite,indirect \
    build-test/tests/kiv_tests --gtest_brief=1 \
    --gtest_filter=-Hostile.*:Bounds.EveryHostileScriptEndsAtItsBound:Threads.*:Bounds.*Stack
echo "sanitizers and valgrind: clean"
