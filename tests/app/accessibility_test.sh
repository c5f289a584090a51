#!/usr/bin/env bash
# What a screen reader gets from the real launcher: on a private Xvfb and a private D-Bus session
# with the accessibility bus (at-spi2-core), accessibility_test.py walks the launcher's tree in
# the ready, working and failed arrangements and the update offer, and presses its buttons
# through AT-SPI.
#
#   accessibility_test.sh <launcher> <scratch>
set -euo pipefail
launcher=$1
tmp=$2
rm -rf "$tmp"
mkdir -p "$tmp"
tmp=$(cd "$tmp" && pwd)
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
die() { echo "FAIL: $*" >&2; exit 1; }
. "$here/../../tools/xvfb.sh"

cleanup() {
  if [[ -s $tmp/script.pid ]]; then kill -9 "$(cat "$tmp/script.pid")" 2>/dev/null || true; fi
  stop_xvfb
}
trap cleanup EXIT
start_xvfb

# Everything the session writes (the bus sockets, settings, caches) stays in the scratch folder:
# settings in memory only, so that the screen reader said to run here is never remembered.
mkdir -m 700 "$tmp/runtime" "$tmp/user"
export XDG_RUNTIME_DIR="$tmp/runtime" HOME="$tmp/user" GSETTINGS_BACKEND=memory
unset XDG_CONFIG_HOME XDG_CACHE_HOME XDG_DATA_HOME AT_SPI_BUS_ADDRESS DBUS_SESSION_BUS_ADDRESS
unset QT_ACCESSIBILITY QT_LINUX_ACCESSIBILITY_ALWAYS_ON KESTRAVINE_LAUNCHER_AUTOSTART
unset KESTRAVINE_LAUNCHER_SHOT
export QT_QPA_PLATFORM=xcb KESTRAVINE_HOME="$tmp/home" KESTRAVINE_NO_OPEN=1

# A product of our own: the install script prints three lines, waits until the test releases
# it, prints a fourth and fails with status 3.
custom="$tmp/custom"
mkdir -p "$custom/bin" "$custom/share/kestravine"
cp "$launcher" "$custom/bin/"
: >"$custom/share/kestravine/kestravine-9.9.9.tar.gz"
mkfifo "$tmp/release"
cat >"$custom/share/kestravine/install.sh" <<SCRIPT
#!/bin/sh
echo \$\$ >'$tmp/script.pid'
echo '第一行：准备'
echo 'second line: unpacking 解包'
echo '第三行'
read -r _ <'$tmp/release'
echo '最后一行：出错了'
exit 3
SCRIPT
chmod +x "$custom/share/kestravine/install.sh"

# A home holding an older version than the package's, for the update offer.
mkdir -p "$tmp/older/app"
echo '{"version": "0.0.1"}' >"$tmp/older/app/package.json"

# The bus daemons' own messages go to a log; the walk's output and errors to ours.
status=0
dbus-run-session -- sh -c 'exec 1>&3 2>&4 3>&- 4>&-; exec /usr/bin/python3 "$@"' sh \
  "$here/accessibility_test.py" "$custom/bin/${launcher##*/}" "$tmp" \
  3>&1 4>&2 >"$tmp/bus.log" 2>&1 || status=$?
if ((status != 0)); then
  echo "--- launcher output:" >&2
  cat "$tmp/launcher.log" >&2 2>/dev/null || true
  echo "--- bus log:" >&2
  cat "$tmp/bus.log" >&2
  die "the walk ended with status $status"
fi
