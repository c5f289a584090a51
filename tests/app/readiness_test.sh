#!/usr/bin/env bash
# The real launcher (offscreen) against stand-in products whose server answers as real ones do:
# already running, listening only after its start command has returned, answering 500, and
# stopped with SIGSTOP. The page opens only for a server that answers, and never cuts the start
# command off; a launcher closed while it waits ends without touching the product's server.
#
#   readiness_test.sh <launcher> <scratch>
set -euo pipefail
launcher=$1
tmp=$2
rm -rf "$tmp"
mkdir -p "$tmp/bin"
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
die() { echo "FAIL: $*" >&2; exit 1; }
. "$here/../../tools/xvfb.sh"  # wait_until

servers=()
cleanup() {
  local p
  for p in "${servers[@]}"; do kill -9 "$p" 2>/dev/null || true; done
}
trap cleanup EXIT

mkdir -m 700 "$tmp/runtime"
export XDG_RUNTIME_DIR="$tmp/runtime" QT_QPA_PLATFORM=offscreen
unset KESTRAVINE_LAUNCHER_SHOT KESTRAVINE_NO_OPEN KESTRAVINE_LAUNCHER_AUTOSTART DISPLAY WAYLAND_DISPLAY

# The browser: a stub that records the address and whether the start command had ended by then.
printf '#!/bin/sh\n[ -e "$KESTRAVINE_HOME/start-ended" ] && e=ended || e=running\necho "$1 $e" >>"%s/opened"\n' \
  "$tmp" >"$tmp/bin/xdg-open"
chmod +x "$tmp/bin/xdg-open"
export PATH="$tmp/bin:$PATH"

# The product's server: answers /home/ with a status, counting requests.
status_server=$here/../../tools/status_server.py

. "$here/../../tools/product_port.sh"

# A product home whose "zorvel:up" runs `start`; its server, when started, works in the home.
product() {
  home="$tmp/$1" offset=$(free_offset)
  port=$((5199 + offset))
  mkdir -p "$home/app"
  printf '{"scripts": {"zorvel:up": "bash %s/up.sh"}}\n' "$home" >"$home/app/package.json"
  printf '%s\ntouch "%s/start-ended"\n' "$2" "$home" >"$home/up.sh"
  rm -f "$tmp/opened"
}
serve() {  # status, in the background, from the product home
  (cd "$home/app" && exec python3 "$status_server" "$port" "$1" "$home/requests") &
  servers+=($!)
  wait_until bash -c "exec 3<>/dev/tcp/127.0.0.1/$port" 2>/dev/null
}
launch() {
  KESTRAVINE_HOME=$home ZORVEL_PORT_OFFSET=$offset "$launcher" 2>"$home/stderr" &
  pid=$!
}
opened() { [[ -s $tmp/opened ]]; }
exits_with() {
  local status=0
  wait "$pid" || status=$?
  [[ $status -eq $1 ]] || { cat "$home/stderr" >&2; die "$2: exit status $status"; }
}

# 1. Already running: the page opens while the start command still runs (it takes 2 s), and the
# launcher ends only once that command has ended.
product running 'sleep 2'
serve 200
launch
exits_with 0 "already running"
[[ $(cat "$tmp/opened") == "http://127.0.0.1:$port/home/ running" ]] ||
  die "already running: opened $(cat "$tmp/opened" 2>/dev/null)"
[[ -e $home/start-ended ]] || die "already running: the launcher ended before its start command"

# 2. The start command starts the server in the background and returns; it listens a second
# later: the page opens.
product late "(sleep 1; cd '$tmp/late/app'; exec python3 '$status_server' \$((5199 + ZORVEL_PORT_OFFSET)) 200 '$tmp/late/requests') </dev/null >/dev/null 2>&1 & echo \$! > '$tmp/late/server.pid'"
launch
exits_with 0 "late listener"
servers+=("$(cat "$home/server.pid")")
[[ $(cat "$tmp/opened") == "http://127.0.0.1:$port/home/ ended" ]] || die "late listener: not opened"

# 3. and 4. A server that answers 500, or that was stopped: never opened; the launcher keeps
# waiting past several probes; closed (SIGTERM) while it waits, it ends with 0 and leaves the
# product's server running.
for how in 500 stopped; do
  product "$how" 'true'
  serve "$([[ $how == 500 ]] && echo 500 || echo 200)"
  server=${servers[-1]}
  [[ $how == stopped ]] && kill -STOP "$server"
  launch
  if [[ $how == 500 ]]; then
    wait_until bash -c "[[ \$(cat '$home/requests' 2>/dev/null) == xxx* ]]"
  else
    # Two probes that the stopped server left without an answer wait in its queue.
    wait_until bash -c "(( \$(ss -Hltn 'sport = :$port' | awk '{print \$2}') >= 2 ))"
  fi
  opened && die "$how: the page was opened"
  kill -0 "$pid" || die "$how: the launcher gave up"
  kill -TERM "$pid"
  exits_with 0 "$how"
  kill -0 "$server" || die "$how: the product's server was stopped"
  [[ $how == stopped ]] && kill -CONT "$server"
done
echo "readiness: 4 cases passed"
