#!/usr/bin/env bash
# Builds the libFuzzer targets with clang and runs each for the given number of seconds (default
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
for target in plain line_splitter; do
  mkdir -p "$scratch/$target"
  echo "== ${target}_fuzzer for ${seconds} s"
  status=0
  build-fuzz/bin/${target}_fuzzer -max_total_time="$seconds" -print_final_stats=1 \
    -artifact_prefix="$scratch/" "$scratch/$target" "tests/fuzz/corpus/$target" \
    >"$scratch/$target.log" 2>&1 || status=$?
  grep -E '^(stat::number_of_executed_units|stat::average_exec_per_sec|Done)' "$scratch/$target.log" || true
  if ((status != 0)); then
    tail -n 40 "$scratch/$target.log"
    echo "${target}_fuzzer found a problem (exit $status)"
    exit 1
  fi
done
