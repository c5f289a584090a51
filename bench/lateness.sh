#!/usr/bin/env bash
# Smoothness under output: the real window (build/bin/frame_lateness) on Xvfb while its install
# script floods it with lines of 80, 1,000 and 10,000 characters and lines past the line cap,
# beside the same window whose script prints nothing. Each row: how late a 16 ms timer fired
# over 10 s, p50, p99 and max in ms. Prints figures; never asserts on them.
#
#   bench/lateness.sh <build-dir>     (the window at the end of each run: <build-dir>/bench-lateness/)
set -euo pipefail

die() { echo "lateness.sh: $*" >&2; exit 2; }
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
[ $# -eq 1 ] || die "usage: bench/lateness.sh <build-dir>"
build=$(cd "$1" 2>/dev/null && pwd) || die "no build directory $1"
program=$build/bin/frame_lateness
[ -x "$program" ] || die "no $program (build first)"
out=$build/bench-lateness
mkdir -p "$out"

. "$here/../tools/xvfb.sh"
start_bench_display
export QT_QPA_PLATFORM=xcb KESTRAVINE_LAUNCHER_AUTOSTART=1
unset KESTRAVINE_LAUNCHER_SHOT

# One run on an install script of its own, in a session of its own so that it can be ended.
run() {
  local name=$1 body=$2 dir="$tmp/$1"
  mkdir -p "$dir/bin" "$dir/share/kestravine"
  cp "$program" "$dir/bin/"
  : >"$dir/share/kestravine/kestravine-1.0.0.tar.gz"
  printf 'echo $$ >%q\n%s\n' "$tmp/$name.pid" "$body" >"$dir/share/kestravine/install.sh"
  local figures
  figures=$(KESTRAVINE_HOME="$dir/home" setsid "$dir/bin/frame_lateness" "$out/$name.png" \
    2>"$tmp/$name.log") ||
    { cat "$tmp/$name.log" >&2; die "the $name run failed"; }
  if [ -s "$tmp/$name.pid" ]; then pkill -KILL -s "$(cat "$tmp/$name.pid")" 2>/dev/null || true; fi
  echo "$figures"
}
# A script printing lines of N x's without end.
flood() { printf 'yes "$(head -c %d /dev/zero | tr %q x)"' "$1" '\0'; }

printf '%-34s %8s %8s %8s %9s\n' "install script, 10 s" "p50 ms" "p99 ms" "max ms" "samples"
row() {
  local label=$1
  read -r p50 p99 max n < <(run "$2" "$3")
  printf '%-34s %8s %8s %8s %9s\n' "$label" "$p50" "$p99" "$max" "$n"
}
row "prints nothing (baseline)" quiet 'exec sleep 60'
row "lines of 80 characters" l80 "$(flood 80)"
row "lines of 1,000 characters" l1000 "$(flood 1000)"
row "lines of 10,000 characters" l10000 "$(flood 10000)"
row "lines of 20,000 (cut at the cap)" lcap "$(flood 20000)"
echo "target: p99 at most 16 ms and max at most 50 ms in every case"
