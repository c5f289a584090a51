#!/usr/bin/env bash
# The real launcher loses its display in the middle of an install, on X11 (Xvfb killed) and on
# Wayland (weston killed): it says so in one Chinese line on stderr, lets the install run to its
# end (reading and dropping what it prints), then ends with 0, never by a signal and without a
# core, leaving no guard file behind. The install script writes a line every few milliseconds
# and waits at a gate, so it would die of SIGPIPE at its next write were its reader gone.
set -euo pipefail
launcher=$1
scratch=$2
rm -rf "$scratch"
mkdir -p "$scratch/product/bin" "$scratch/product/share/kestravine"
tmp=$(cd "$scratch" && pwd)
die() { echo "FAIL: $*" >&2; exit 1; }
. "$(dirname "${BASH_SOURCE[0]}")/../../tools/xvfb.sh"
. "$(dirname "${BASH_SOURCE[0]}")/../../tools/weston.sh"
cleanup() {
  pkill -9 -f "$tmp/product/" || true
  stop_xvfb
  stop_weston
}
trap cleanup EXIT
unset QT_QPA_PLATFORM DISPLAY WAYLAND_DISPLAY

cp "$launcher" "$tmp/product/bin/"
: >"$tmp/product/share/kestravine/kestravine-9.9.9.tar.gz"
cat >"$tmp/product/share/kestravine/install.sh" <<'SCRIPT'
echo started >"$KESTRAVINE_HOME/state"
# Writes while the gate is closed, then once more after it opens: each write needs a reader.
while [ ! -e "$KESTRAVINE_HOME/open" ]; do echo "copying"; sleep 0.01; done
echo "last line"
echo finished >"$KESTRAVINE_HOME/state"
SCRIPT
started() { grep -q started "$1/state" 2>/dev/null; }

for desktop in x11 wayland; do
  home=$tmp/home-$desktop
  mkdir -p "$home"
  if [[ $desktop == x11 ]]; then
    start_xvfb
    server=$xvfb_pid
    mkdir -m 700 "$tmp/runtime-x11"
    export XDG_RUNTIME_DIR=$tmp/runtime-x11
  else
    start_weston
    server=$weston_pid
  fi
  KESTRAVINE_HOME=$home KESTRAVINE_LAUNCHER_AUTOSTART=1 KESTRAVINE_NO_OPEN=1 \
    "$tmp/product/bin/${launcher##*/}" 2>"$tmp/$desktop.err" &
  pid=$!
  wait_until started "$home"
  kill -9 "$server"
  wait "$server" 2>/dev/null || true
  said() { grep -q '^kestravine-launcher：桌面断开了，窗口已经没了；等正在运行的命令结束后退出。$' "$tmp/$desktop.err"; }
  wait_until said
  kill -0 "$pid" || die "$desktop: the launcher ended with the display"
  grep -q started "$home/state" || die "$desktop: the install ended with the display"
  touch "$home/open"
  status=0
  wait "$pid" || status=$?
  [[ $status -eq 0 ]] || die "$desktop: the launcher ended with $status: $(cat "$tmp/$desktop.err")"
  grep -q finished "$home/state" || die "$desktop: the install did not finish"
  ! grep -qi "connection broke" "$tmp/$desktop.err" || die "$desktop: the toolkit's line reached the terminal"
  guard=$XDG_RUNTIME_DIR/kestravine-launcher
  [[ -d $guard && -z $(ls -A "$guard") ]] || die "$desktop: the guard's files outlived the launcher: $(ls -A "$guard" 2>&1)"
  unset DISPLAY WAYLAND_DISPLAY xvfb_pid weston_pid
  echo "ok: $desktop: the display died mid-install; the install finished and the launcher ended with 0"
done
