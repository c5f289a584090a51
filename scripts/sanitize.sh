#!/usr/bin/env bash
# Runs the tests again under sanitizers: every test with AddressSanitizer and
# UndefinedBehaviorSanitizer, and the process, model and platform tests (where the output
# readers, the exit watchers, the kill follow-up and the main queue meet) with ThreadSanitizer.
# Any report fails the run.
set -euo pipefail
cd "$(dirname "$0")/.."
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
export LSAN_OPTIONS=suppressions=$PWD/tests/sanitizers/lsan.supp
export TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1 suppressions=$PWD/tests/sanitizers/tsan.supp"
export QT_QPA_PLATFORM=offscreen
# Most tests wait on processes they run, so twice the cores keeps the machine busy.
jobs=$((2 * $(nproc)))
# -O1 and line tables only, as sanitizer builds usually are: the stacks still name every line,
# and the two builds take a good part less of the test command's time.
optimise=(-DCMAKE_C_FLAGS_RELWITHDEBINFO="-O1 -g1 -DNDEBUG"
  -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O1 -g1 -DNDEBUG")

echo "== AddressSanitizer + UndefinedBehaviorSanitizer"
cmake -S . -B build-asan -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo "${optimise[@]}" \
  -DKESTRAVINE_SANITIZE=address,undefined -DKESTRAVINE_BUILD_BENCH=OFF >/dev/null
cmake --build build-asan
# The demo product's own test and the package test exercise no launcher code of their own.
ctest --test-dir build-asan --output-on-failure -j"$jobs" -E '^(demo\.|app\.package)'

echo "== ThreadSanitizer"
CC=clang CXX=clang++ cmake -S . -B build-tsan -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo "${optimise[@]}" \
  -DKESTRAVINE_SANITIZE=thread -DKESTRAVINE_BUILD_APP=OFF -DKESTRAVINE_BUILD_BENCH=OFF >/dev/null
cmake --build build-tsan --target test_helper platform_tests process_tests model_tests
ctest --test-dir build-tsan --output-on-failure -j"$jobs" -R '^(platform|process|model)(\.|$)'
