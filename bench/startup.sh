#!/usr/bin/env bash
# Launch to window shown: the launcher (empty product home, so it shows the install offer) beside
# its floors, a bare Qt Widgets window of the same size and the same window with one label in the
# launcher's font (build/bin/bare_window), and beside `zenity --progress` and `yad --progress` fed
# "100", all under one Xvfb server started here. Prints median and minimum times and peak RSS,
# and the targets beside them; never asserts on them.
#
#   bench/startup.sh <build-dir>        (STARTUP_RUNS=N to change the number of runs, default 15)
#
# STARTUP_COMPARE=<other-build-dir> also measures that build's launcher in the same rounds (a
# change's effect, beside the same run's floors), as "other launcher".
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
die() { echo "startup.sh: $*" >&2; exit 2; }

[ $# -eq 1 ] || die "usage: bench/startup.sh <build-dir>"
launcher=$(cd "$1" 2>/dev/null && pwd)/bin/kestravine-launcher || die "no build directory $1"
[ -x "$launcher" ] || die "no launcher at $launcher (build first)"
bare=${launcher%/*}/bare_window
[ -x "$bare" ] || die "no bare window at $bare (build first)"
other=""
if [ -n "${STARTUP_COMPARE:-}" ]; then
  other=$(cd "$STARTUP_COMPARE" 2>/dev/null && pwd)/bin/kestravine-launcher || die "no build directory $STARTUP_COMPARE"
  [ -x "$other" ] || die "no launcher at $other"
fi
programs="launcher${other:+ other} bare label zenity yad"
runs=${STARTUP_RUNS:-15}
[[ $runs =~ ^[1-9][0-9]*$ ]] || die "STARTUP_RUNS must be a positive number"

for tool in Xvfb zenity yad cc awk; do
  command -v "$tool" >/dev/null 2>&1 || die "missing $tool (Debian: xvfb, zenity, yad, gcc, gawk/mawk)"
done
echo '#include <xcb/xcb.h>' | cc -E -x c - >/dev/null 2>&1 || die "missing xcb headers (Debian: libxcb1-dev)"

. "$here/../tools/xvfb.sh"
tmp=$(mktemp -d)
xvfb_pid=""
cleanup() {
  stop_xvfb
  rm -rf "$tmp"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

# The window watcher: a small X client, built here so no build system has to know about it.
cc -O2 -std=c11 -o "$tmp/probe" "$here/startup_probe.c" -lxcb || die "cannot build the window watcher"

start_xvfb

# The same quiet environment for every program.
mkdir -m 700 "$tmp/runtime" "$tmp/home"
export XDG_RUNTIME_DIR="$tmp/runtime"
export KESTRAVINE_HOME="$tmp/home"
export QT_QPA_PLATFORM=xcb
unset KESTRAVINE_LAUNCHER_AUTOSTART KESTRAVINE_LAUNCHER_SHOT
printf '100\n' >"$tmp/hundred"

# One measurement; appends "shown_ms exit_ms peak_rss_kb" to $tmp/<name> unless a warm-up.
measure() {
  local name=$1 kind=${2:-} out
  case $name in
    launcher)
      out=$("$tmp/probe" --title Kestravine --hold-ms 500 -- "$launcher" 2>>"$tmp/stderr") ;;
    other)
      out=$("$tmp/probe" --title Kestravine --hold-ms 500 -- "$other" 2>>"$tmp/stderr") ;;
    bare)
      out=$("$tmp/probe" --title startup-bare --hold-ms 500 -- "$bare" 2>>"$tmp/stderr") ;;
    label)
      out=$("$tmp/probe" --title startup-label --hold-ms 500 -- "$bare" --label 2>>"$tmp/stderr") ;;
    zenity | yad)
      out=$("$tmp/probe" --title "startup-$name" --stdin "$tmp/hundred" --until-exit -- \
        "$name" --progress --auto-close --title="startup-$name" 2>>"$tmp/stderr") ;;
  esac || { tail -n 20 "$tmp/stderr" >&2; die "the window watcher failed on $name"; }
  [ "$kind" = warmup ] && return 0
  # Launcher: the larger VmHWM of "just shown" and "0.5 s later". Peers: wait4's maxrss over
  # their whole life, which ends on its own.
  awk -v name="$name" '{
    if (name == "zenity" || name == "yad") rss = $6
    else if ($4 == "-") rss = $5
    else if ($5 == "-" || $4 + 0 > $5 + 0) rss = $4
    else rss = $5
    print $1, $2, rss
  }' <<<"$out" >>"$tmp/$name"
}

# The warm-up runs fill the file cache, and let GTK store its GL visual choice on the root window
# (GDK_VISUALS) as it would be on a running desktop; without that each GTK run probes GL again.
echo "startup: $runs runs each after one warm-up run each, round-robin, under Xvfb $DISPLAY"
for name in $programs; do measure "$name" warmup; done
for ((i = 1; i <= runs; i++)); do
  for name in $programs; do measure "$name"; done
done

# "median min max count" of one column, or "- - - 0" when no run produced a figure there.
stats() {
  awk -v col="$2" 'BEGIN { n = 0 } $col != "-" { v[n++] = $col + 0 }
    END {
      if (n == 0) { print "- - - 0"; exit }
      for (i = 0; i < n; i++) for (j = i + 1; j < n; j++) if (v[j] < v[i]) { t = v[i]; v[i] = v[j]; v[j] = t }
      med = (n % 2) ? v[int(n / 2)] : (v[n / 2 - 1] + v[n / 2]) / 2
      print med, v[0], v[n - 1], n
    }' "$1"
}
# "-" stays "-"; kB figures are shown in MB.
ms_pair() { awk -v a="$1" -v b="$2" -v n="$3" 'BEGIN { if (a == "-") print "-"; else printf "%.1f / %.1f (%d)\n", a, b, n }'; }
mb_pair() { awk -v a="$1" -v b="$2" -v n="$3" 'BEGIN { if (a == "-") print "-"; else printf "%.1f / %.1f (%d)\n", a / 1024, b / 1024, n }'; }

declare -A shown exit_ms rss
printf '\n%-22s %20s %20s %20s\n' "program" "window shown ms" "start to exit ms" "peak RSS MB"
printf '%-22s %20s %20s %20s\n' "" "median / min (n)" "median / min (n)" "median / max (n)"
for name in $programs; do
  read -r s_med s_min _ s_n < <(stats "$tmp/$name" 1)
  read -r e_med e_min _ e_n < <(stats "$tmp/$name" 2)
  read -r r_med _ r_max r_n < <(stats "$tmp/$name" 3)
  shown[$name]=$s_med exit_ms[$name]=$e_med rss[$name]=$r_med
  if [ "$name" != zenity ] && [ "$name" != yad ]; then
    label=kestravine-launcher exit_text="n/a (stopped by us)"
    [ "$name" = other ] && label="other launcher"
    [ "$name" = bare ] && label="bare Qt window"
    [ "$name" = label ] && label="bare window + label"
  else
    label="$name --progress" exit_text=$(ms_pair "$e_med" "$e_min" "$e_n")
  fi
  printf '%-22s %20s %20s %20s\n' "$label" "$(ms_pair "$s_med" "$s_min" "$s_n")" "$exit_text" \
    "$(mb_pair "$r_med" "$r_max" "$r_n")"
done

# Targets, printed beside the figures; the peers are compared on the same run's medians.
at_most() { awk -v a="$1" -v b="$2" 'BEGIN { if (a == "-" || b == "-") print "n/a"; else print (a + 0 <= b + 0 ? "met" : "MISSED") }'; }
below() { awk -v a="$1" -v b="$2" 'BEGIN { if (a == "-" || b == "-") print "n/a"; else print (a + 0 < b + 0 ? "yes" : "NO") }'; }
mb() { awk -v k="$1" 'BEGIN { if (k == "-") print "-"; else printf "%.1f\n", k / 1024 }'; }
ms() { awk -v v="$1" 'BEGIN { if (v == "-") print "-"; else printf "%.1f\n", v }'; }
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { if (a == "-" || b == "-" || b == 0) print "-"; else printf "%.2f\n", a / b }'; }
l_shown=$(ms "${shown[launcher]}")
floor=$(ms "${shown[label]}")
bare_ms=$(ms "${shown[bare]}")
l_rss=$(mb "${rss[launcher]}")
echo
echo "targets (launcher medians):"
printf '  window shown <= 60 ms: %s ms -> %s\n' "$l_shown" "$(at_most "$l_shown" 60)"
# The floor is the window with one label in the launcher's font: any window with text pays for
# the font configuration and a face; the launcher should add little beyond that.
to_floor=$(ratio "$l_shown" "$floor")
printf '  window shown <= 1.0 x the bare window with one label in its font: %s ms vs %s ms = %s x -> %s\n' \
  "$l_shown" "$floor" "$to_floor" "$(at_most "$to_floor" 1.0)"
# Paired by round (each round runs every program once, back to back): the median of the
# per-round ratios, which drifts less with the machine's load than a ratio of two medians.
paired() {
  paste -d ' ' "$tmp/$1" "$tmp/label" | awk '$1 != "-" && $4 != "-" && $4 > 0 { r[n++] = $1 / $4 }
    END {
      if (n == 0) { print "-"; exit }
      for (i = 0; i < n; i++) for (j = i + 1; j < n; j++) if (r[j] < r[i]) { t = r[i]; r[i] = r[j]; r[j] = t }
      printf "%.2f\n", (n % 2) ? r[int(n / 2)] : (r[n / 2 - 1] + r[n / 2]) / 2
    }'
}
printf '  (paired by round: %s x; minimums: %s ms vs %s ms = %s x)\n' "$(paired launcher)" \
  "$(ms "$(stats "$tmp/launcher" 1 | cut -d' ' -f2)")" "$(ms "$(stats "$tmp/label" 1 | cut -d' ' -f2)")" \
  "$(ratio "$(stats "$tmp/launcher" 1 | cut -d' ' -f2)" "$(stats "$tmp/label" 1 | cut -d' ' -f2)")"
printf '  (the bare window without text: %s ms; the launcher %s x, the label window %s x of it)\n' \
  "$bare_ms" "$(ratio "$l_shown" "$bare_ms")" "$(ratio "$floor" "$bare_ms")"
# The same floor for memory: the label window's peak and 3 MB for everything else the launcher is.
rss_floor=$(mb "${rss[label]}")
rss_target=$(awk -v f="$rss_floor" 'BEGIN { printf "%.1f", f + 3 }')
printf '  peak RSS <= the label window + 3 MB = %s MB: %s MB -> %s (bare window with the label %s MB, bare window %s MB)\n' \
  "$rss_target" "$l_rss" "$(at_most "$l_rss" "$rss_target")" "$rss_floor" "$(mb "${rss[bare]}")"
if [ -n "$other" ]; then
  printf '  other launcher: window shown %s ms = %s x the label window (paired %s x), peak RSS %s MB\n' \
    "$(ms "${shown[other]}")" "$(ratio "$(ms "${shown[other]}")" "$floor")" "$(paired other)" \
    "$(mb "${rss[other]}")"
fi
for peer in zenity yad; do
  printf '  below %-6s window shown %s (%s vs %s ms), start to exit %s (%s vs %s ms), peak RSS %s (%s vs %s MB)\n' \
    "$peer" "$(below "$l_shown" "${shown[$peer]}")" "$l_shown" "$(ms "${shown[$peer]}")" \
    "$(below "$l_shown" "${exit_ms[$peer]}")" "$l_shown" "$(ms "${exit_ms[$peer]}")" \
    "$(below "${rss[launcher]}" "${rss[$peer]}")" "$(mb "${rss[launcher]}")" "$(mb "${rss[$peer]}")"
done
echo "  launcher: start to its window mapped; peak RSS = larger VmHWM of then and 0.5 s later."
echo "  peers: start to window mapped, and start to their own exit after reading 100 (wall time);"
echo "  peak RSS = wait4 maxrss. \"Window shown\" is the fairer comparison; both are printed."
