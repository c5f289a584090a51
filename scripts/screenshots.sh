#!/usr/bin/env bash
# Renders the launcher's arrangements into docs/screenshots/: the four of them, the failed one
# with its details expanded, one in a dark palette and one at scale 2, and the update offer. Snapshot mode shows what
# it can; tools/render_view the rest (the checking arrangement, which only lasts until the check,
# and what needs a click or a palette). Needs a build.
set -euo pipefail
cd "$(dirname "$0")/.."
out=docs/screenshots
work=$(mktemp -d)
trap 'pkill -f "$work/" 2>/dev/null || true; rm -rf "$work"' EXIT
export QT_QPA_PLATFORM=offscreen
mkdir -p "$out"

build/bin/render_view "$out/checking.png" --before-check
KESTRAVINE_HOME="$work/empty" KESTRAVINE_LAUNCHER_SHOT="$out/ready.png" build/bin/kestravine-launcher

# A layout of our own, so that the program finds scripted install steps beside it.
layout() {
  local name=$1 ending=$2
  mkdir -p "$work/$name/bin" "$work/$name/share/kestravine"
  cp build/bin/kestravine-launcher build/bin/render_view "$work/$name/bin/"
  : >"$work/$name/share/kestravine/kestravine-0.1.0.tar.gz"
  cat >"$work/$name/share/kestravine/install.sh" <<SCRIPT
for f in app/package.json app/server.js app/up.js app/down.js app/common.js; do
  printf '\e[36m[2/6]\e[0m 解压 %s\n' "\$f"; sleep 0.05
done
printf '      \e[32m✓\e[0m 校验通过（5 个文件）\n'
printf '\e[36m[5/6]\e[0m \e[1m启动 Varnholt\e[0m：http://127.0.0.1:5199/home/\n'
$ending
SCRIPT
}
shoot() {
  local name=$1 layout=$2
  shift 2
  KESTRAVINE_HOME="$work/$layout/home-$name" KESTRAVINE_LAUNCHER_AUTOSTART=1 \
    KESTRAVINE_LAUNCHER_SHOT="$out/$name.png" "$@"
}
layout working 'exec sleep 30'
layout failed 'echo "端口 5199 已被占用" >&2; exit 1'
shoot working working "$work/working/bin/kestravine-launcher"
shoot failed failed "$work/failed/bin/kestravine-launcher"
shoot working-scale-2 working env QT_SCALE_FACTOR=2 "$work/working/bin/kestravine-launcher"
shoot failed-details failed "$work/failed/bin/render_view" "$out/failed-details.png" --expand-details
shoot failed-details-dark failed "$work/failed/bin/render_view" "$out/failed-details-dark.png" \
  --expand-details --dark
# An installed 0.0.9 under the package's newer version: the update offer, at scale 2 and dark.
mkdir -p "$work/older/app"
echo '{"version": "0.0.9"}' >"$work/older/app/package.json"
KESTRAVINE_HOME="$work/older" KESTRAVINE_LAUNCHER_SHOT="$out/update.png" build/bin/kestravine-launcher
KESTRAVINE_HOME="$work/older" KESTRAVINE_LAUNCHER_SHOT="$out/update-scale-2.png" QT_SCALE_FACTOR=2 \
  build/bin/kestravine-launcher
KESTRAVINE_HOME="$work/older" build/bin/render_view "$out/update-dark.png" --dark
# The wait for an installed product, once its start command has ended: nothing listens on the
# port, something listens without answering, a server answers 500; at scale 1 and 2.
mkdir -p "$work/waiting/app"
echo '{"scripts": {"zorvel:up": "true"}}' >"$work/waiting/app/package.json"
wait_shot() {
  local name=$1 offset=$2
  KESTRAVINE_HOME="$work/waiting" ZORVEL_PORT_OFFSET=$offset KESTRAVINE_LAUNCHER_SHOT="$out/$name.png" \
    build/bin/kestravine-launcher
  KESTRAVINE_HOME="$work/waiting" ZORVEL_PORT_OFFSET=$offset QT_SCALE_FACTOR=2 \
    KESTRAVINE_LAUNCHER_SHOT="$out/$name-scale-2.png" build/bin/kestravine-launcher
}
. tools/product_port.sh
status_server=$PWD/tools/status_server.py
wait_shot waiting-nothing "$(free_offset)"
offset=$(free_offset)
(cd "$work/waiting/app" && exec python3 -c '
import socket, sys, time
s = socket.socket(); s.bind(("127.0.0.1", int(sys.argv[1]))); s.listen(16); time.sleep(60)' \
  $((5199 + offset))) &
sleep 0.5
wait_shot waiting-silent "$offset"
kill $! 2>/dev/null || true
offset=$(free_offset)
(cd "$work/waiting/app" && exec python3 "$status_server" $((5199 + offset)) 500) &
sleep 0.5
wait_shot waiting-500 "$offset"
kill $! 2>/dev/null || true
# An install the system refused to start (a process limit, which binds only a user other than
# root), at scale 1 and 2.
limited=(prlimit --nproc=3)
if ((EUID == 0)); then
  other=$(bash tests/support/unused_uid.sh)
  limited=(setpriv --reuid="$other" --regid="$other" --clear-groups "${limited[@]}")
fi
chmod 755 "$work"
for scale in 1 2; do
  [[ $scale == 2 ]] && suffix=-scale-2 || suffix=""
  name=failed-not-started$suffix
  install -d -m 0777 "$work/limited-$scale"
  "${limited[@]}" env -i HOME="$work/limited-$scale" QT_QPA_PLATFORM=offscreen QT_SCALE_FACTOR=$scale \
    KESTRAVINE_HOME="$work/limited-$scale/home" KESTRAVINE_LAUNCHER_AUTOSTART=1 \
    KESTRAVINE_LAUNCHER_SHOT="$work/limited-$scale/shot.png" "$PWD/build/bin/kestravine-launcher" 2>/dev/null
  cp "$work/limited-$scale/shot.png" "$out/$name.png"
done
# The product answers, but the desktop's opener fails: the window gives the address.
offset=$(free_offset)
(cd "$work/waiting/app" && exec python3 "$status_server" $((5199 + offset)) 200) &
mkdir -p "$work/failing-opener"
printf '#!/bin/sh\necho "xdg-open: no method available for opening $1" >&2\nexit 3\n' \
  >"$work/failing-opener/xdg-open"
chmod +x "$work/failing-opener/xdg-open"
sleep 0.5
for scale in 1 2; do
  [[ $scale == 2 ]] && suffix=-scale-2 || suffix=""
  PATH="$work/failing-opener:$PATH" KESTRAVINE_HOME="$work/waiting" ZORVEL_PORT_OFFSET=$offset \
    QT_SCALE_FACTOR=$scale KESTRAVINE_LAUNCHER_SHOT="$out/failed-opener$suffix.png" \
    build/bin/kestravine-launcher 2>/dev/null
done
kill $! 2>/dev/null || true
ls -l "$out"
