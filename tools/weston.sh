# Sourced by tests: starts a private headless weston (a Wayland desktop without a screen) and
# points WAYLAND_DISPLAY and XDG_RUNTIME_DIR at it. Needs $tmp (a scratch folder) and die(); the
# caller's cleanup calls stop_weston.
#
# The runtime folder is a fresh one under /tmp rather than in $tmp: a socket's path must fit in
# 108 bytes, which a deep build folder can exceed, and hold no blank (see the check below).
start_weston() {
  weston_runtime=$(mktemp -d "/tmp/kestravine-wayland.XXXXXX")
  local socket=$weston_runtime/wayland-test
  XDG_RUNTIME_DIR=$weston_runtime weston --backend=headless-backend.so --socket=wayland-test \
    --idle-time=0 --no-config --log="$tmp/weston.log" >/dev/null 2>&1 &
  weston_pid=$!
  # The socket file appears at bind(), a moment before listen(); a client connecting in between
  # is refused. The kernel's table of Unix sockets tells when it listens (flag 00010000).
  for _ in $(seq 1 400); do
    if awk -v path="$socket" '$4 == "00010000" && $NF == path { found = 1 }
      END { exit !found }' /proc/net/unix; then
      export WAYLAND_DISPLAY=wayland-test XDG_RUNTIME_DIR=$weston_runtime
      return 0
    fi
    kill -0 "$weston_pid" 2>/dev/null || break
    sleep 0.05
  done
  cat "$tmp/weston.log" >&2
  die "weston did not start"
}

# For the caller's cleanup: stops the compositor (its own clients end with it), if one was
# started, and removes its runtime folder.
stop_weston() {
  if [ -n "${weston_pid:-}" ]; then
    kill "$weston_pid" 2>/dev/null || true
    wait "$weston_pid" 2>/dev/null || true
  fi
  if [ -n "${weston_runtime:-}" ]; then rm -rf "$weston_runtime"; fi
}
