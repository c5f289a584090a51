#!/usr/bin/env bash
# Sets the machine up, builds everything and runs every test: the test suite, then the same
# tests under sanitizers and the fuzz target for 30 s. `--quick` stops after the suite.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build build
# Widget tests need no display; the one end-to-end test brings its own Xvfb.
export QT_QPA_PLATFORM=offscreen
ctest --test-dir build --output-on-failure -j"$((2 * $(nproc)))"
[[ ${1:-} == --quick ]] && exit 0

bash scripts/sanitize.sh
bash scripts/fuzz.sh 30
# Suite, address and undefined-behaviour sanitizers, thread sanitizer, fuzzing.
echo "stages: 4 passed, 0 failed"
