#!/usr/bin/env bash
# Builds the libFuzzer target with clang and runs it for the given number of seconds (default
# 60), starting from the seed corpus in tests/fuzz/corpus. New inputs go to a scratch folder, so
# the repository's corpus is only read. Any finding fails the run.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
CC=clang CXX=clang++ cmake -S . -B build-fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DKESTRAVINE_FUZZ=ON -DKESTRAVINE_BUILD_TESTS=OFF -DKESTRAVINE_BUILD_BENCH=OFF \
  -DKESTRAVINE_BUILD_APP=OFF >/dev/null
cmake --build build-fuzz
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
echo "== output_fuzzer for ${seconds} s"
status=0
build-fuzz/bin/output_fuzzer -max_total_time="$seconds" -print_final_stats=1 \
  -artifact_prefix="$scratch/" "$scratch" tests/fuzz/corpus/output >"$scratch/log" 2>&1 || status=$?
grep -E '^(stat::number_of_executed_units|stat::average_exec_per_sec|Done)' "$scratch/log" || true
if ((status != 0)); then
  tail -n 40 "$scratch/log"
  echo "output_fuzzer found a problem (exit $status)"
  exit 1
fi
