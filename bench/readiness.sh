#!/usr/bin/env bash
# From double-click to the product's page: how long the launcher (offscreen, a stub browser that
# notes the moment it is asked) takes to open the page, beside the product's own time in the same
# run. Three products:
#   already running   a stand-in server that answers at once; its start command is npm running
#                     `true` in a login shell. Baseline: that start command timed by itself.
#   late listener     a start command that starts the server in the background and returns; the
#                     server listens 0.5 s later. Measured from the moment it listens.
#   demo              the demo product, installed once and running. Baseline: its own start
#                     command (`npm run -s zorvel:up` in a login shell) timed by itself.
# Prints medians and ranges with the targets beside them; never asserts on them.
#
#   bench/readiness.sh <build-dir>     (READINESS_RUNS=N, default 7)
set -euo pipefail

die() { echo "readiness.sh: $*" >&2; exit 2; }
[ $# -eq 1 ] || die "usage: bench/readiness.sh <build-dir>"
build=$(cd "$1" 2>/dev/null && pwd) || die "no build directory $1"
launcher=$build/bin/kestravine-launcher
[ -x "$launcher" ] || die "no launcher at $launcher (build first)"
runs=${READINESS_RUNS:-7}
for tool in python3 npm curl; do command -v "$tool" >/dev/null || die "missing $tool"; done

tmp=$(mktemp -d)
pids=()
cleanup() {
  local p
  for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done
  if [[ -d $tmp/demo/app ]]; then
    (cd "$tmp/demo/app" && KESTRAVINE_HOME=$tmp/demo ZORVEL_PORT_OFFSET=$demo_offset \
      npm run -s zorvel:down >/dev/null 2>&1) || true
  fi
  rm -rf "$tmp"
}
trap cleanup EXIT
mkdir -m 700 "$tmp/runtime" "$tmp/bin"
export XDG_RUNTIME_DIR=$tmp/runtime QT_QPA_PLATFORM=offscreen HOME=$tmp/user
mkdir -p "$HOME"
unset KESTRAVINE_NO_OPEN KESTRAVINE_LAUNCHER_AUTOSTART KESTRAVINE_LAUNCHER_SHOT DISPLAY WAYLAND_DISPLAY
printf '#!/bin/sh\ndate +%%s.%%N >"%s/opened"\n' "$tmp" >"$tmp/bin/xdg-open"
chmod +x "$tmp/bin/xdg-open"
export PATH=$tmp/bin:$PATH
now() { date +%s.%N; }

status_server=$(cd "$(dirname "${BASH_SOURCE[0]}")/../tools" && pwd)/status_server.py

. "$(dirname "${BASH_SOURCE[0]}")/../tools/product_port.sh"
# Seconds from `from` to the stub's note, after one launch for `home` with `offset`.
launch() {
  local home=$1 offset=$2
  rm -f "$tmp/opened"
  local from
  from=$(now)
  KESTRAVINE_HOME=$home ZORVEL_PORT_OFFSET=$offset "$launcher" >/dev/null 2>&1 || true
  [[ -s $tmp/opened ]] || die "the page was not opened for $home"
  echo "$from"
}
median() { sort -g | awk '{a[NR]=$1} END {m=(NR%2)?a[(NR+1)/2]:(a[NR/2]+a[NR/2+1])/2; printf "%.3f s (%.3f to %.3f)", m, a[1], a[NR]}'; }
diff_s() { awk -v a="$1" -v b="$2" 'BEGIN {printf "%.4f\n", b - a}'; }
start_time() {  # the start command by itself, in its home
  local home=$1 offset=$2 from
  from=$(now)
  (cd "$home/app" && KESTRAVINE_HOME=$home ZORVEL_PORT_OFFSET=$offset bash -lc "npm run -s zorvel:up" >/dev/null 2>&1) || true
  diff_s "$from" "$(now)"
}

# Already running.
home=$tmp/running offset=$(free_offset)
mkdir -p "$home/app"
printf '{"scripts": {"zorvel:up": "true"}}\n' >"$home/app/package.json"
(cd "$home/app" && exec python3 "$status_server" $((5199 + offset)) 200 "$tmp/requests") &
pids+=($!)
until [[ -s $tmp/requests.listening ]]; do sleep 0.05; done
# A product already running: `runs` launches into the array named $3, each beside its start
# command timed alone (into the array named $4).
measure_running() {
  local -n opened_after=$3 alone=$4
  for _ in $(seq "$runs"); do
    from=$(launch "$1" "$2")
    opened_after+=("$(diff_s "$from" "$(cat "$tmp/opened")")")
    alone+=("$(start_time "$1" "$2")")
  done
}
running=() running_base=()
measure_running "$home" "$offset" running running_base

# Late listener.
home=$tmp/late
mkdir -p "$home/app"
late=()
for _ in $(seq "$runs"); do
  offset=$(free_offset)
  rm -f "$tmp/late-requests.listening"
  printf '{"scripts": {"zorvel:up": "python3 %s $((5199 + ZORVEL_PORT_OFFSET)) 200 %s/late-requests 0.5 </dev/null >/dev/null 2>&1 & echo $! > %s/server.pid"}}\n' \
    "$status_server" "$tmp" "$tmp" >"$home/app/package.json"
  launch "$home" "$offset" >/dev/null
  late+=("$(diff_s "$(cat "$tmp/late-requests.listening")" "$(cat "$tmp/opened")")")
  kill "$(cat "$tmp/server.pid")" 2>/dev/null || true
done

# The demo product, installed once and running.
home=$tmp/demo demo_offset=$(free_offset)
tarball=$(ls "$build"/share/kestravine/kestravine-*.tar.gz | head -n 1)
KESTRAVINE_HOME=$home ZORVEL_PORT_OFFSET=$demo_offset KESTRAVINE_NO_OPEN=1 \
  bash "$build/share/kestravine/install.sh" --from "$tarball" >"$tmp/install.log" 2>&1 ||
  { cat "$tmp/install.log" >&2; die "the demo did not install"; }
demo=() demo_base=()
measure_running "$home" "$demo_offset" demo demo_base

printf '%s\n' "| product | page opened (median, range) | the product's own time | target |"
printf '%s\n' "|---|---|---|---|"
printf '| already running | %s after start | start command alone: %s | within 0.4 s, under half the start command |\n' \
  "$(printf '%s\n' "${running[@]}" | median)" "$(printf '%s\n' "${running_base[@]}" | median)"
printf '| late listener | %s after it listens | (listens 0.5 s after the start) | within 0.2 s of listening |\n' \
  "$(printf '%s\n' "${late[@]}" | median)"
printf '| demo, running | %s after start | start command alone: %s | within 0.4 s, under half the start command |\n' \
  "$(printf '%s\n' "${demo[@]}" | median)" "$(printf '%s\n' "${demo_base[@]}" | median)"
echo "runs: $runs each"
