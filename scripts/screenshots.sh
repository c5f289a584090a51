#!/usr/bin/env bash
# Renders the launcher's four arrangements into docs/screenshots/ with snapshot mode (the
# checking one, which only lasts until the check, with tools/render_checking). Needs a build.
set -euo pipefail
cd "$(dirname "$0")/.."
out=docs/screenshots
work=$(mktemp -d)
trap 'pkill -f "$work/" 2>/dev/null || true; rm -rf "$work"' EXIT
export QT_QPA_PLATFORM=offscreen
mkdir -p "$out"

build/bin/render_checking "$out/checking.png"
KESTRAVINE_HOME="$work/empty" KESTRAVINE_LAUNCHER_SHOT="$out/ready.png" build/bin/kestravine-launcher

# A layout of our own, so the launcher finds scripted install steps beside it.
shoot() {
  local name=$1 ending=$2
  mkdir -p "$work/$name/bin" "$work/$name/share/kestravine"
  cp build/bin/kestravine-launcher "$work/$name/bin/"
  : >"$work/$name/share/kestravine/kestravine-0.1.0.tar.gz"
  cat >"$work/$name/share/kestravine/install.sh" <<SCRIPT
for f in app/package.json app/server.js app/up.js app/down.js app/common.js; do
  printf '\e[36m[2/6]\e[0m 解压 %s\n' "\$f"; sleep 0.05
done
printf '      \e[32m✓\e[0m 校验通过（5 个文件）\n'
printf '\e[36m[5/6]\e[0m \e[1m启动 Varnholt\e[0m：http://127.0.0.1:5199/home/\n'
$ending
SCRIPT
  KESTRAVINE_HOME="$work/$name/home" KESTRAVINE_LAUNCHER_AUTOSTART=1 \
    KESTRAVINE_LAUNCHER_SHOT="$out/$name.png" "$work/$name/bin/kestravine-launcher"
}
shoot working 'exec sleep 30'
shoot failed 'echo "端口 5199 已被占用" >&2; exit 1'
ls -l "$out"
