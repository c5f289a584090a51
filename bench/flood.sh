#!/usr/bin/env bash
# Output flood: an install script prints 1,000,000 lines with ANSI colours. Measures the launcher's
# CPU time and peak RSS while it follows them (snapshot mode, autostart, under Xvfb), beside
# `yad --progress` taking the same lines as "# line" status updates in the same run. Keeps the
# snapshots and checks them against runs that were given only the last 400 lines: identical
# pictures mean the launcher kept up. Prints figures; never asserts on them.
#
#   bench/flood.sh <build-dir>     (snapshots go to $FLOOD_OUT, default <build-dir>/bench-flood;
#                                   FLOOD_RUNS=N measured rounds, default 3)
set -euo pipefail

die() { echo "flood.sh: $*" >&2; exit 2; }
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)

[ $# -eq 1 ] || die "usage: bench/flood.sh <build-dir>"
build=$(cd "$1" 2>/dev/null && pwd) || die "no build directory $1"
launcher=$build/bin/kestravine-launcher
[ -x "$launcher" ] || die "no launcher at $launcher (build first)"
[ -x /usr/bin/time ] || die "missing /usr/bin/time (Debian: time)"
for tool in Xvfb yad awk sed identify compare timeout; do
  command -v "$tool" >/dev/null 2>&1 ||
    die "missing $tool (Debian: xvfb, yad, gawk/mawk, sed, imagemagick, coreutils)"
done
runs=${FLOOD_RUNS:-3}
[[ $runs =~ ^[1-9][0-9]*$ ]] || die "FLOOD_RUNS must be a positive number"
out=${FLOOD_OUT:-$build/bench-flood}
mkdir -p "$out"
out=$(cd "$out" && pwd)

lines=1000000
. "$here/../tools/xvfb.sh"
tmp=$(mktemp -d)
xvfb_pid=""
cleanup() {
  # The scripts that end in "exec sleep 30" wrote their pid; the launcher may have left them.
  local f
  for f in "$tmp"/*.pid; do
    if [ -s "$f" ]; then kill "$(cat "$f")" 2>/dev/null || true; fi
  done
  stop_xvfb
  rm -rf "$tmp"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

start_xvfb
unset KESTRAVINE_LAUNCHER_AUTOSTART KESTRAVINE_LAUNCHER_SHOT
mkdir -m 700 "$tmp/runtime"
export XDG_RUNTIME_DIR="$tmp/runtime"

# The lines are made once, up front, so the install scripts only `cat` them: the launcher's
# figures then hold almost nothing of the script's own work (measured below and taken off).
awk -v n="$lines" 'BEGIN { for (i = 1; i <= n; i++) printf "\033[32mINFO\033[0m step %d done\n", i }' \
  >"$tmp/lines.txt"
tail -n 400 "$tmp/lines.txt" >"$tmp/tail.txt"
{ sed 's/^/# /' "$tmp/lines.txt"; echo 100; } >"$tmp/yad.txt"

# A layout the launcher takes its resources from: <T>/bin/launcher, <T>/share/kestravine/.
layout() {
  local name=$1 body=$2 dir="$tmp/$1"
  mkdir -p "$dir/bin" "$dir/share/kestravine" "$dir/home"
  cp "$launcher" "$dir/bin/kestravine-launcher"
  : >"$dir/share/kestravine/kestravine-1.0.0.tar.gz"
  printf '%s\n' "$body" >"$dir/share/kestravine/install.sh"
}
layout flood-exit "cat '$tmp/lines.txt'; exit 3"
layout flood-hang "echo \$\$ > '$tmp/flood-hang.pid'; cat '$tmp/lines.txt'; exec sleep 30"
layout tail-exit "cat '$tmp/tail.txt'; exit 3"
layout tail-hang "echo \$\$ > '$tmp/tail-hang.pid'; cat '$tmp/tail.txt'; exec sleep 30"

# One launcher run in snapshot mode with autostart; it ends by itself 4 s after start.
# Writes $out/<run>.png and $tmp/<run>.time ("wall user sys maxrss_kb").
run_launcher() {
  local name=$1 run=$2 dir="$tmp/$1"
  /usr/bin/time -o "$tmp/$run.time" -f '%e %U %S %M' \
    env KESTRAVINE_HOME="$dir/home" KESTRAVINE_LAUNCHER_AUTOSTART=1 \
    KESTRAVINE_LAUNCHER_SHOT="$out/$run.png" QT_QPA_PLATFORM=xcb \
    timeout -k 5 30 "$dir/bin/kestravine-launcher" >"$tmp/$run.log" 2>&1 ||
    { cat "$tmp/$run.log" >&2; die "the launcher did not end by itself in the $run run"; }
  # Whether the launcher stopped the script when it quit (it is killed here either way).
  local pidfile="$tmp/$name.pid"
  if [ -s "$pidfile" ] && kill -0 "$(cat "$pidfile")" 2>/dev/null; then
    echo "note ($run): the install script was still running after the launcher quit" >>"$tmp/notes"
    kill "$(cat "$pidfile")" 2>/dev/null || true
  fi
  rm -f "$pidfile"
}

# One yad run; the final "100" makes --auto-close end it once every line was taken.
run_yad() {
  local run=$1 status=0
  # Through a pipe, as the launcher gets its lines, rather than from a file.
  # shellcheck disable=SC2002
  cat "$tmp/yad.txt" | /usr/bin/time -o "$tmp/$run.time" -f '%e %U %S %M' \
    timeout -k 5 90 yad --progress --auto-close --auto-kill --title=flood-yad >/dev/null 2>"$tmp/$run.log" ||
    status=$?
  [ "$status" -eq 0 ] || echo "note ($run): yad did not end by itself (status $status)" >>"$tmp/notes"
}

rm -f "$out"/flood-*.png "$out"/tail-*.png
: >"$tmp/notes"
echo "flood: $lines lines with ANSI colours ($(du -m "$tmp/lines.txt" | cut -f1) MB) under Xvfb $DISPLAY, $runs rounds"

# The script alone, with a pipe reader like the launcher's, to take its share off the launcher's.
/usr/bin/time -o "$tmp/script.time" -f '%e %U %S %M' \
  bash "$tmp/flood-exit/share/kestravine/install.sh" --from /dev/null | cat >/dev/null || true

# yad warm-up: GTK's GL visual choice then is already cached on the root window, as on a running
# desktop; otherwise the first GTK client probes GL and its peak RSS triples.
echo 100 | timeout 30 yad --progress --auto-close --title=flood-yad >/dev/null 2>&1 || true

# Measured rounds, launcher and yad alternating so drift in the machine hits both alike.
for ((i = 1; i <= runs; i++)); do
  run_launcher flood-exit "flood-exit-$i"
  run_yad "yad-$i"
done
# Not timed against anything: the working arrangement, and the two runs to compare pictures with.
run_launcher flood-hang flood-hang
run_launcher tail-exit tail-exit
run_launcher tail-hang tail-hang

# "median min max" of CPU seconds (user+sys) and of peak RSS in MB, and the median wall time, over
# a set of /usr/bin/time files (their last line: a line about a non-zero exit may come first).
summary() {
  local f
  for f in "$@"; do tail -n 1 "$f"; done | awk '
    function sort(a, n,   i, j, t) { for (i = 0; i < n; i++) for (j = i + 1; j < n; j++) if (a[j] < a[i]) { t = a[i]; a[i] = a[j]; a[j] = t } }
    function med(a, n) { return (n % 2) ? a[int(n / 2)] : (a[n / 2 - 1] + a[n / 2]) / 2 }
    BEGIN { n = 0 }  # numeric from the start: an unset n would index the first entry by ""
    { cpu[n] = $2 + $3; rss[n] = $4 / 1024; wall[n] = $1; n++ }
    END { sort(cpu, n); sort(rss, n); sort(wall, n)
          printf "%.2f %.2f %.2f %.1f %.1f %.1f %.2f\n", med(cpu, n), cpu[0], cpu[n - 1], med(rss, n), rss[0], rss[n - 1], med(wall, n) }'
}
read -r s_cpu _ _ s_rss _ _ s_wall < <(summary "$tmp/script.time")
read -r e_cpu e_min e_max e_rss e_rmin e_rmax e_wall < <(summary "$tmp"/flood-exit-*.time)
read -r h_cpu _ _ h_rss _ _ h_wall < <(summary "$tmp/flood-hang.time")
read -r y_cpu y_min y_max y_rss y_rmin y_rmax y_wall < <(summary "$tmp"/yad-*.time)
e_net=$(awk -v a="$e_cpu" -v b="$s_cpu" 'BEGIN { v = a - b; printf "%.2f", v < 0 ? 0 : v }')

echo
printf '%-44s %17s %17s %7s\n' "" "CPU s" "peak RSS MB" "wall s"
printf '%-44s %17s %17s %7s\n' "" "median (min-max)" "median (min-max)" "median"
printf '%-44s %17s %17s %7s\n' "install script alone (cat lines; exit 3)" "$s_cpu" "$s_rss" "$s_wall"
printf '%-44s %17s %17s %7s\n' "launcher, script exits 3 (with the script)" "$e_cpu ($e_min-$e_max)" \
  "$e_rss ($e_rmin-$e_rmax)" "$e_wall"
printf '%-44s %17s\n' "launcher, script exits 3 (script taken off)" "$e_net"
printf '%-44s %17s %17s %7s\n' "launcher, script keeps running (1 run)" "$h_cpu" "$h_rss" "$h_wall"
printf '%-44s %17s %17s %7s\n' "yad --progress (\"# line\" each, then 100)" "$y_cpu ($y_min-$y_max)" \
  "$y_rss ($y_rmin-$y_rmax)" "$y_wall"
cat "$tmp/notes"

echo
echo "targets (medians):"
awk -v l="$e_net" -v y="$y_cpu" 'BEGIN { printf "  launcher CPU <= 1/3 of yad'"'"'s: %.2f s vs %.2f s (a third of %.2f) -> %s\n", l, y / 3, y, (l <= y / 3 ? "met" : "MISSED") }'
awk -v r="$e_rss" -v h="$h_rss" 'BEGIN { m = r > h ? r : h; printf "  launcher peak RSS <= 50 MB: %.1f MB -> %s\n", m, (m <= 50 ? "met" : "MISSED") }'

# A snapshot that is pixel for pixel the one of a run given only the last 400 lines shows the same
# arrangement, status line and log tail: the launcher had taken in every line by 4 s.
echo
echo "snapshots (taken 4 s after start):"
check_png() {
  local png=$1 info
  [ -s "$png" ] || { echo "missing"; return; }
  info=$(identify -format '%m %w %h' "$png" 2>/dev/null) || { echo "unreadable"; return; }
  read -r fmt w h <<<"$info"
  if [ "$fmt" = PNG ] && ((w % 440 == 0 && h % 320 == 0 && w / 440 == h / 320)); then
    echo "PNG ${w}x${h} ok"
  else
    echo "$fmt ${w}x${h} NOT a 440x320 PNG"
  fi
}
same_as() {
  local a=$1 b=$2 ae
  if [ ! -s "$a" ] || [ ! -s "$b" ]; then echo "cannot compare"; return; fi
  ae=$(compare -metric AE "$a" "$b" null: 2>&1) || true
  if [ "$ae" = 0 ]; then echo "identical"; else echo "$ae pixels differ"; fi
}
for ((i = 1; i <= runs; i++)); do
  echo "  $out/flood-exit-$i.png: $(check_png "$out/flood-exit-$i.png"); against tail-exit.png:" \
    "$(same_as "$out/flood-exit-$i.png" "$out/tail-exit.png")"
done
echo "  $out/flood-hang.png: $(check_png "$out/flood-hang.png"); against tail-hang.png:" \
  "$(same_as "$out/flood-hang.png" "$out/tail-hang.png")"
echo "  (tail-exit: failed arrangement with 退出码 3; tail-hang: working arrangement, status = last line)"
