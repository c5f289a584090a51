#!/usr/bin/env bash
# The real launcher in a real window, on Xvfb with openbox, used the way people use it: the
# window closed or the launcher signalled in the middle of an install, a cancel followed at
# once by a close, a second signal, and a start without any display.
#
#   real_use_test.sh <launcher> <scratch>
set -euo pipefail
launcher=$1
tmp=$2
rm -rf "$tmp"
mkdir -p "$tmp"
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
die() { echo "FAIL: $*" >&2; exit 1; }
. "$here/../../tools/xvfb.sh"

homes=()
cleanup() {
  local h
  for h in "${homes[@]}"; do
    if [[ -d $h/app ]]; then (cd "$h/app" && npm run -s zorvel:down >/dev/null 2>&1) || true; fi
  done
  if [[ -s $tmp/script.pid ]]; then kill -9 "$(cat "$tmp/script.pid")" 2>/dev/null || true; fi
  stop_xvfb
}
trap cleanup EXIT

start_xvfb
start_openbox
mkdir -m 700 "$tmp/runtime"
export XDG_RUNTIME_DIR="$tmp/runtime"
unset KESTRAVINE_LAUNCHER_SHOT KESTRAVINE_NO_OPEN
export QT_QPA_PLATFORM=xcb KESTRAVINE_LAUNCHER_AUTOSTART=1

# The browser: a stub that records what it was asked to open.
mkdir -p "$tmp/bin"
printf '#!/bin/sh\necho "$1" >>"%s/opened"\n' "$tmp" >"$tmp/bin/xdg-open"
chmod +x "$tmp/bin/xdg-open"
export PATH="$tmp/bin:$PATH"

# A port offset whose port nobody listens on.
. "$here/../../tools/product_port.sh"

# Alt+F4, as a user closes it, until the window has gone: on a busy machine the window manager
# may not have given it the focus yet, and the keys then go nowhere. A second close is harmless.
close_window() {
  local id i
  for i in $(seq 1 40); do
    id=$(xdotool search --onlyvisible --name '^Kestravine$' | head -n 1) || return 0
    [[ -n $id ]] || return 0
    xdotool windowactivate --sync "$id" 2>/dev/null || true
    xdotool key --clearmodifiers alt+F4
    sleep 0.5
  done
  die "the window did not close"
}

# 1. Closed, or sent TERM, INT or HUP, once the demo install has started: the window goes at
# once; the install runs to its end; the launcher then ends with 0 without opening anything.
for how in close TERM INT HUP; do
  home="$tmp/home-$how"
  homes+=("$home")
  offset=$(free_offset)
  rm -f "$tmp/opened"
  KESTRAVINE_HOME=$home ZORVEL_PORT_OFFSET=$offset "$launcher" 2>"$tmp/stderr" &
  pid=$!
  wait_until window_shown
  if [[ $how == close ]]; then
    # The launcher's own icon, and the class its desktop entry names, also from a build tree.
    id=$(xdotool search --onlyvisible --name '^Kestravine$' | head -n 1)
    # Whole outputs, not pipes into grep -q: with pipefail, a writer cut off early fails too.
    [[ $(xprop -id "$id" _NET_WM_ICON) == *'Icon ('* ]] || die "the window has no icon"
    [[ $(xprop -id "$id" WM_CLASS) == *'"kestravine-launcher"'* ]] || die "unexpected WM_CLASS"
  fi
  wait_until test -e "$home/.install.lock"
  if [[ $how == close ]]; then close_window; else kill -s "$how" "$pid"; fi
  wait_until bash -c '! xdotool search --onlyvisible --name "^Kestravine$" >/dev/null 2>&1'
  status=0
  timeout 120 tail --pid="$pid" -f /dev/null || die "$how: launcher still running after 120 s"
  wait "$pid" || status=$?
  [[ $status -eq 0 ]] || die "$how: exit status $status"
  [[ -f $home/app/package.json ]] || die "$how: the install did not finish"
  curl -fsS -o /dev/null "http://127.0.0.1:$((5199 + offset))/home/" || die "$how: product not running"
  [[ ! -e $tmp/opened ]] || die "$how: the browser was opened"
  echo "ok: $how during the install: install finished, exit 0, nothing opened"
done

# A product of our own: an install script that survives SIGTERM (noting it) until killed.
custom="$tmp/custom"
mkdir -p "$custom/bin" "$custom/share/kestravine"
cp "$launcher" "$custom/bin/"
: >"$custom/share/kestravine/kestravine-9.9.9.tar.gz"
cat >"$custom/share/kestravine/install.sh" <<SCRIPT
trap 'echo TERM >>"$tmp/script.term"' TERM
echo \$\$ >'$tmp/script.pid'
while :; do echo tick; sleep 0.2; done
SCRIPT
custom_launcher="$custom/bin/${launcher##*/}"

# 2. Cancel, then close at once: the SIGKILL still comes 10 s after the cancel, and only then
# does the launcher end.
rm -f "$tmp/script.pid"
KESTRAVINE_HOME="$tmp/home-custom" "$custom_launcher" 2>"$tmp/stderr" &
pid=$!
wait_until test -s "$tmp/script.pid"
script=$(cat "$tmp/script.pid")
wait_until window_shown
id=$(xdotool search --onlyvisible --name '^Kestravine$' | head -n 1)
xdotool windowactivate --sync "$id" || die "the window could not be activated"
xdotool key --clearmodifiers Escape  # the cancel button
cancelled=$(date +%s%N)
wait_until test -s "$tmp/script.term"  # the cancel's SIGTERM reached it, and did not end it
close_window
status=0
timeout 60 tail --pid="$pid" -f /dev/null || die "cancel+close: launcher still running after 60 s"
wait "$pid" || status=$?
ended_ms=$((($(date +%s%N) - cancelled) / 1000000))
[[ $status -eq 0 ]] || die "cancel+close: exit status $status"
# Killed, it may stay a zombie for a moment, until whoever inherited it reaps it.
running() { [[ $(sed 's/.*) //' "/proc/$1/stat" 2>/dev/null) =~ ^[^ZX] ]]; }
! running "$script" || die "cancel+close: the install script survived"
((ended_ms >= 9000)) || die "cancel+close: ended ${ended_ms} ms after the cancel, before the SIGKILL was due"
echo "ok: cancel then close: script killed, launcher ended ${ended_ms} ms after the cancel"

# 3. A second signal ends the launcher at once, even while it waits for a running install.
rm -f "$tmp/script.pid"
KESTRAVINE_HOME="$tmp/home-custom" "$custom_launcher" 2>"$tmp/stderr" &
pid=$!
wait_until test -s "$tmp/script.pid"
kill -TERM "$pid"
wait_until bash -c '! xdotool search --onlyvisible --name "^Kestravine$" >/dev/null 2>&1'
kill -0 "$pid" || die "second signal: the launcher ended before the install did"
kill -TERM "$pid"
status=0
timeout 20 tail --pid="$pid" -f /dev/null || die "second signal: launcher still running"
wait "$pid" || status=$?
[[ $status -eq 143 ]] || die "second signal: exit status $status, expected death by SIGTERM"
kill -9 "$(cat "$tmp/script.pid")"
echo "ok: a second TERM ends the launcher at once"

# 4. No display at all and no terminal, without the automatic start: one line on stderr, exit 1,
# no core dump.
status=0
env -u DISPLAY -u WAYLAND_DISPLAY -u QT_QPA_PLATFORM -u KESTRAVINE_LAUNCHER_AUTOSTART "$launcher" \
  >"$tmp/stdout" 2>"$tmp/stderr" ||
  status=$?
[[ $status -eq 1 ]] || die "no display: exit status $status"
[[ $(wc -l <"$tmp/stderr") -eq 1 && ! -s $tmp/stdout ]] || die "no display: said $(cat "$tmp/stderr")"
echo "ok: no display: $(cat "$tmp/stderr")"

# 5. A second desktop of the same user: a launch for the same home there shows a small window on
# its own desktop saying where the launcher is open, which its button closes; nothing is
# installed twice, and the first window stays as it was.
mkfifo "$tmp/display2"
Xvfb -displayfd 3 -screen 0 1024x768x24 -nolisten tcp -noreset 3>"$tmp/display2" \
  2>"$tmp/xvfb2.log" &
xvfb2_pid=$!
read -r -t 20 second <"$tmp/display2" || die "the second Xvfb did not start"
second=":$second"
home="$tmp/home-two-desktops"
homes+=("$home")
KESTRAVINE_HOME=$home KESTRAVINE_LAUNCHER_AUTOSTART= "$launcher" 2>"$tmp/stderr-first" &
first=$!
wait_until window_shown
status=0
DISPLAY=$second KESTRAVINE_HOME=$home "$launcher" 2>"$tmp/stderr-second" &
pid=$!
wait_until bash -c "DISPLAY=$second xdotool search --onlyvisible --name '^Kestravine$' >/dev/null 2>&1"
grep -qF "已经在另一个桌面上打开了（DISPLAY=$DISPLAY）" "$tmp/stderr-second" ||
  die "second desktop: said $(cat "$tmp/stderr-second")"
id=$(DISPLAY=$second xdotool search --onlyvisible --name '^Kestravine$' | head -n 1)
DISPLAY=$second xdotool windowfocus --sync "$id" key Return
wait "$pid" || status=$?
[[ $status -eq 0 ]] || die "second desktop: exit status $status"
kill -0 "$first" || die "second desktop: the first launcher ended"
[[ ! -e $home/app ]] || die "second desktop: something was installed"
close_window
wait "$first" || true
kill "$xvfb2_pid" 2>/dev/null || true
echo "ok: a second desktop is told where the launcher is open"

# 6. A product that already runs: its page opens while its start command still runs, the window
# goes 0.8 s later, and the launcher, windowless, ends only once that command has ended.
home="$tmp/home-running"
homes+=("$home")
offset=$(free_offset)
mkdir -p "$home/app"
printf '{"scripts": {"zorvel:up": "sleep 3; touch %s/start-ended"}}\n' "$home" >"$home/app/package.json"
(cd "$home/app" && exec python3 "$here/../../tools/status_server.py" $((5199 + offset)) 200) &
server=$!
wait_until bash -c "exec 3<>/dev/tcp/127.0.0.1/$((5199 + offset))" 2>/dev/null
rm -f "$tmp/opened"
KESTRAVINE_HOME=$home ZORVEL_PORT_OFFSET=$offset KESTRAVINE_LAUNCHER_AUTOSTART= "$launcher" \
  2>"$tmp/stderr" &
pid=$!
wait_until test -s "$tmp/opened"
wait_until bash -c '! xdotool search --onlyvisible --name "^Kestravine$" >/dev/null 2>&1'
[[ ! -e $home/start-ended ]] || die "already running: the start command ended before the window went"
kill -0 "$pid" || die "already running: the launcher ended before its start command"
status=0
wait "$pid" || status=$?
[[ $status -eq 0 && -e $home/start-ended ]] || die "already running: exit status $status"
kill "$server"
echo "ok: a product already running opens at once; the window goes, the start command ends first"
