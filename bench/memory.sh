#!/usr/bin/env bash
# Peak memory of the whole launcher while an install script floods it, for 4 s (snapshot mode,
# autostart, under Xvfb): endless output without a line end, lines of 20 MB each (400 of them,
# as far as 4 s go), a million ordinary coloured lines, and beside them the same launcher with a
# script that prints nothing. Prints figures; never asserts on them.
#
#   bench/memory.sh <build-dir>
set -euo pipefail

die() { echo "memory.sh: $*" >&2; exit 2; }
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
[ $# -eq 1 ] || die "usage: bench/memory.sh <build-dir>"
build=$(cd "$1" 2>/dev/null && pwd) || die "no build directory $1"
launcher=$build/bin/kestravine-launcher
[ -x "$launcher" ] || die "no launcher at $launcher (build first)"
[ -x /usr/bin/time ] || die "missing /usr/bin/time (Debian: time)"

. "$here/../tools/xvfb.sh"
start_bench_display
unset KESTRAVINE_LAUNCHER_AUTOSTART KESTRAVINE_LAUNCHER_SHOT

awk 'BEGIN { for (i = 1; i <= 1000000; i++) printf "\033[32mINFO\033[0m step %d done\n", i }' \
  >"$tmp/lines.txt"

# One launcher run on an install script of its own; prints its peak RSS in MB. The script runs
# in a session of its own, so that what it started can be ended with it afterwards.
peak() {
  local name=$1 body=$2 dir="$tmp/$1"
  mkdir -p "$dir/bin" "$dir/share/kestravine" "$dir/home"
  cp "$launcher" "$dir/bin/kestravine-launcher"
  : >"$dir/share/kestravine/kestravine-1.0.0.tar.gz"
  printf 'echo $$ >%q\n%s\n' "$tmp/$name.pid" "$body" >"$dir/share/kestravine/install.sh"
  /usr/bin/time -o "$tmp/$name.time" -f '%M' \
    env KESTRAVINE_HOME="$dir/home" KESTRAVINE_LAUNCHER_AUTOSTART=1 \
    KESTRAVINE_LAUNCHER_SHOT="$tmp/$name.png" QT_QPA_PLATFORM=xcb \
    timeout -k 5 30 setsid "$dir/bin/kestravine-launcher" >"$tmp/$name.log" 2>&1 || true
  if [ -s "$tmp/$name.pid" ]; then pkill -KILL -s "$(cat "$tmp/$name.pid")" 2>/dev/null || true; fi
  awk '{ v = $1 } END { printf "%.1f", v / 1024 }' "$tmp/$name.time"
}

printf '%-52s %12s\n' "install script, for 4 s" "peak RSS MB"
printf '%-52s %12s\n' "prints nothing (baseline)" "$(peak quiet 'exec sleep 30')"
printf '%-52s %12s\n' "1,000,000 coloured lines" "$(peak flood "cat '$tmp/lines.txt'; exec sleep 30")"
printf '%-52s %12s\n' "endless output, no line end (yes | tr -d '\\n')" \
  "$(peak endless "yes | tr -d '\\n'")"
printf '%-52s %12s\n' "400 lines of 20 MB each" \
  "$(peak huge "for i in \$(seq 400); do head -c 20000000 /dev/zero | tr '\\\\0' x; echo; done")"
echo "target: at most 80 MB in every case"
