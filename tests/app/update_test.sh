#!/usr/bin/env bash
# The real launcher, on Xvfb with openbox, finding a newer product in its package than the one
# installed: with KESTRAVINE_LAUNCHER_AUTOSTART=1 it updates by itself and opens the newer
# version; by keyboard, a cancelled update comes back to the offer, from which the quieter
# button starts the older version, which opens. The product is the demo, older and newer.
#
#   update_test.sh <launcher> <scratch> <newer tarball>
set -euo pipefail
launcher=$1
tmp=$2
next_tarball=$3
rm -rf "$tmp"
mkdir -p "$tmp"
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
die() { echo "FAIL: $*" >&2; exit 1; }
for tool in node npm curl; do
  command -v "$tool" >/dev/null 2>&1 || { echo "skipped: $tool is not installed"; exit 77; }
done
. "$here/../../tools/xvfb.sh"

# The package as a user has it: the launcher beside its share folder, holding the older tarball.
product=$tmp/product
mkdir -p "$product/bin"
cp "$launcher" "$product/bin/"
cp -r "$(dirname "$launcher")/../share/kestravine" "$product/share-kestravine"
mkdir -p "$product/share"
mv "$product/share-kestravine" "$product/share/kestravine"
share=$product/share/kestravine
older_tarball=$(echo "$share"/kestravine-*.tar.gz)
cp "$older_tarball" "$tmp/"
older_tarball=$tmp/${older_tarball##*/}
older=${older_tarball##*/kestravine-}
older=${older%.tar.gz}
newer=${next_tarball##*/kestravine-}
newer=${newer%.tar.gz}

home=$tmp/home
export KESTRAVINE_HOME=$home
offset=""
for _ in $(seq 1 50); do
  offset=$((RANDOM % 19000 + 500))
  (exec 3<>"/dev/tcp/127.0.0.1/$((5199 + offset))") 2>/dev/null || break
done
export ZORVEL_PORT_OFFSET=$offset
url="http://127.0.0.1:$((5199 + offset))/home/"

stop_product() { if [[ -d $home/app ]]; then (cd "$home/app" && node down.js >/dev/null 2>&1) || true; fi; }
cleanup() {
  stop_product
  stop_xvfb
}
trap cleanup EXIT
start_xvfb
start_openbox
mkdir -m 700 "$tmp/runtime"
export XDG_RUNTIME_DIR="$tmp/runtime" QT_QPA_PLATFORM=xcb
unset KESTRAVINE_LAUNCHER_SHOT KESTRAVINE_NO_OPEN KESTRAVINE_LAUNCHER_AUTOSTART

mkdir -p "$tmp/bin"
printf '#!/bin/sh\necho "$1" >>"%s/opened"\n' "$tmp" >"$tmp/bin/xdg-open"
chmod +x "$tmp/bin/xdg-open"
export PATH="$tmp/bin:$PATH"

keys() {
  xdotool windowactivate --sync "$(launcher_window)" 2>/dev/null || true
  xdotool key --clearmodifiers "$@"
}
installed_version() { node -p 'require(process.argv[1]).version' "$home/app/package.json"; }
answering_version() { curl -fsS --max-time 3 "$url" | sed -n 's|.*<dt>版本</dt><dd>\([^<]*\)</dd>.*|\1|p'; }
# The older version installed and stopped; the package then holds only the newer one.
install_older_then_offer_newer() {
  rm -f "$share"/kestravine-*.tar.gz
  KESTRAVINE_NO_OPEN=1 bash "$share/install.sh" --from "$older_tarball" >"$tmp/older.log" 2>&1 ||
    die "installing $older failed: $(tail -n 3 "$tmp/older.log")"
  stop_product
  echo "written by $older" >>"$home/app/.zorvel/logs/monitor.log"
  cp "$next_tarball" "$share/"
  rm -f "$tmp/opened"
}
# Runs the launcher to its end: exit 0, one address opened, and `version` answers there.
expect_opened() {
  local version=$1 status=0
  wait "$launcher_pid" || status=$?
  ((status == 0)) || die "the launcher ended with $status: $(cat "$tmp/stderr")"
  [[ $(cat "$tmp/opened") == "$url" ]] || die "opened '$(cat "$tmp/opened" 2>/dev/null)', not $url"
  [[ $(answering_version) == "$version" ]] || die "$(answering_version) answers, not $version"
  [[ $(installed_version) == "$version" ]] || die "$(installed_version) is installed, not $version"
  grep -qxF "written by $older" "$home/app/.zorvel/logs/monitor.log" || die "the log of $older is gone"
  stop_product
}

# By itself: the update runs as an install does, and the newer version opens.
install_older_then_offer_newer
KESTRAVINE_LAUNCHER_AUTOSTART=1 timeout 120 "$product/bin/kestravine-launcher" 2>"$tmp/stderr" &
launcher_pid=$!
expect_opened "$newer"
echo "ok: updated $older to $newer by itself, and opened $newer"

# By keyboard: Tab to the update and Return; Escape cancels it once it has begun; Return (the
# retry) brings the offer back; Tab twice to the older version and Return.
install_older_then_offer_newer
timeout 120 "$product/bin/kestravine-launcher" 2>"$tmp/stderr" &
launcher_pid=$!
wait_until window_shown
keys Tab Return
staging() { compgen -G "$home/.staging.*" >/dev/null; }
wait_until staging
keys Escape
update_gone() { ! pgrep -f -- "--from $share/" >/dev/null; }
wait_until update_gone
[[ $(installed_version) == "$older" ]] || die "a cancelled update left $(installed_version)"
! staging || die "a cancelled update left its staging folder"
keys Return Tab Tab Return
expect_opened "$older"
echo "ok: a cancelled update left $older, which the quieter button then opened"
