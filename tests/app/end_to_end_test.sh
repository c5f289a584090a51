#!/usr/bin/env bash
# The real launcher in a real window on Xvfb: installs the demo product by itself, waits for it
# to answer, asks the desktop to open it (a stub xdg-open records the address) and ends about
# 0.8 s later with status 0. The stub lies in a directory whose path holds a blank, which Qt's
# own way of running xdg-open cannot start.
set -euo pipefail
launcher=$1
scratch=$2
rm -rf "$scratch"
bin="$scratch/with blank/bin"
mkdir -p "$bin" "$scratch/home dir"
home="$scratch/home dir"
tmp=$scratch
die() { echo "FAIL: $*" >&2; exit 1; }
# A server of its own, on a display it picked itself: "xvfb-run -a" guesses a free number and
# races other tests starting a server at the same moment.
. "$(dirname "${BASH_SOURCE[0]}")/../../tools/xvfb.sh"

stop_product() {
  if [[ -d $home/app ]]; then (cd "$home/app" && npm run -s zorvel:down >/dev/null 2>&1) || true; fi
  stop_xvfb
}
trap stop_product EXIT
start_xvfb

cat >"$bin/xdg-open" <<STUB
#!/bin/sh
printf '%s %s\n' "\$(date +%s%N)" "\$1" >>'$scratch/opened'
STUB
chmod +x "$bin/xdg-open"

# A port offset whose port nobody listens on.
for _ in $(seq 1 50); do
  offset=$((RANDOM % 19000 + 500))
  if ! (exec 3<>"/dev/tcp/127.0.0.1/$((5199 + offset))") 2>/dev/null; then break; fi
done
port=$((5199 + offset))

status=0
PATH="$bin:$PATH" KESTRAVINE_HOME="$home" ZORVEL_PORT_OFFSET=$offset \
  KESTRAVINE_LAUNCHER_AUTOSTART=1 QT_QPA_PLATFORM=xcb \
  timeout 120 "$launcher" || status=$?
ended=$(date +%s%N)

echo "launcher exit status: $status"
[[ $status -eq 0 ]] || exit 1
[[ -s $scratch/opened ]] || { echo "nothing was opened"; exit 1; }
read -r opened_at url <"$scratch/opened"
echo "opened: $url"
[[ $url == "http://127.0.0.1:$port/home/" ]] || { echo "expected port $port"; exit 1; }
[[ $(wc -l <"$scratch/opened") -eq 1 ]] || { echo "opened more than once"; exit 1; }
after_ms=$(((ended - opened_at) / 1000000))
echo "ended ${after_ms} ms after opening"
# About 0.8 s: never sooner; later only by the time the stub takes to go away.
((after_ms >= 750 && after_ms < 10000)) || exit 1
[[ $(curl -fsS "http://127.0.0.1:$port/home/") == *'<title>Varnholt</title>'* ]]
