# Sourced by benchmarks and tests: starts a private Xvfb and points DISPLAY at it, and finds the
# launcher's window on it. Needs $tmp (a scratch folder) and die(); the caller's cleanup calls
# stop_xvfb.
#
# -displayfd: Xvfb picks a free display itself and writes its number once it accepts clients.
# -noreset: otherwise the server resets whenever its last client leaves, and a client connecting
# during the reset is refused.
start_xvfb() {
  mkfifo "$tmp/display"
  Xvfb -displayfd 3 -screen 0 1280x800x24 -nolisten tcp -noreset 3>"$tmp/display" 2>"$tmp/xvfb.log" &
  xvfb_pid=$!
  local display=""
  read -r -t 20 display <"$tmp/display" || true
  [ -n "$display" ] || { cat "$tmp/xvfb.log" >&2; die "Xvfb did not start"; }
  export DISPLAY=":$display"
  unset WAYLAND_DISPLAY
}

# A window manager on it, for tests in which the window is closed the way a user closes it
# (openbox binds Alt+F4 to Close). Returns once it has taken over the screen.
start_openbox() {
  openbox --sm-disable >"$tmp/openbox.log" 2>&1 &
  openbox_pid=$!
  local i
  for i in $(seq 1 200); do
    xprop -root _NET_SUPPORTING_WM_CHECK 2>/dev/null | grep -q 'window id' && return 0
    sleep 0.05
  done
  die "openbox did not start"
}

# Polls the command given until it succeeds, for at most 30 s; then fails the caller (die).
wait_until() {
  local i
  for i in $(seq 1 600); do
    "$@" && return 0
    sleep 0.05
  done
  die "timed out waiting for: $*"
}
# Whether the launcher's window is shown, and its id.
window_shown() { xdotool search --onlyvisible --name '^Kestravine$' >/dev/null 2>&1; }
launcher_window() { xdotool search --onlyvisible --name '^Kestravine$' | head -n 1; }

# For the caller's cleanup: stops the server, if one was started.
stop_xvfb() {
  if [ -n "${openbox_pid:-}" ]; then kill "$openbox_pid" 2>/dev/null || true; fi
  if [ -n "${xvfb_pid:-}" ]; then
    kill "$xvfb_pid" 2>/dev/null || true
    wait "$xvfb_pid" 2>/dev/null || true
  fi
}

# For benchmarks that run the launcher on scripts of their own: a scratch folder $tmp, a private
# Xvfb with a runtime folder, and on exit the end of every session whose leader wrote its pid
# to $tmp/<name>.pid (the install scripts run in sessions of their own).
start_bench_display() {
  tmp=$(mktemp -d)
  trap end_bench_display EXIT
  start_xvfb
  mkdir -m 700 "$tmp/runtime"
  export XDG_RUNTIME_DIR="$tmp/runtime"
}
end_bench_display() {
  local f
  for f in "$tmp"/*.pid; do
    if [ -s "$f" ]; then pkill -KILL -s "$(cat "$f")" 2>/dev/null || true; fi
  done
  stop_xvfb
  rm -rf "$tmp"
}
