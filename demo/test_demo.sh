#!/usr/bin/env bash
# Installs the demo product the way the launcher does, then starts it again, reinstalls it over
# itself and stops it; makes sure it never takes another home's Varnholt or another program on
# its port for its own, and works in a product home given as a relative path; that an update
# cancelled at any of its steps leaves a whole application that starts; and makes sure a bad
# --from fails loudly without touching anything.
#
#   test_demo.sh <built install.sh> <built tarball> <scratch folder> <newer tarball>
#
# Exit status 77 when node, npm or curl is missing (the test is skipped).
set -euo pipefail

install_sh=$1
tarball=$2
scratch=$3
next_tarball=$4 # a newer version of the same product

for tool in node npm curl; do
  command -v "$tool" >/dev/null 2>&1 || { echo "skipped: $tool is not installed"; exit 77; }
done

fail() {
  printf 'FAIL: %s\n' "$1" >&2
  shift
  local file
  for file in "$@"; do
    [[ -f $file ]] || continue
    printf -- '--- %s\n' "$file" >&2
    cat -- "$file" >&2
  done
  exit 1
}
pass() { printf 'ok: %s\n' "$1"; }

now_ms() { echo $(($(date +%s%N) / 1000000)); }

# Polls the command until it succeeds or the time (ms) runs out; the status tells which.
wait_until() {
  local deadline=$(($(now_ms) + $1))
  shift
  until "$@"; do
    (($(now_ms) < deadline)) || return 1
    sleep 0.05
  done
}

bindable() {
  node -e '
    const s = require("net").createServer();
    s.once("error", () => process.exit(1));
    s.listen(Number(process.argv[1]), "127.0.0.1", () => s.close(() => process.exit(0)));' "$1"
}
port_closed() { ! (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null; }

# --- a scratch product home, and a port nobody uses ---------------------------------------------

# A home path that breaks anything which does not quote it or which evaluates it.
home="$scratch/product home 'q' \$(touch pwned)"
app="$home/app"
# More homes on the same port: one installed on its own, one copied by hand from the first,
# and one given to install.sh as a path relative to the folder it runs in.
home2="$scratch/second home"
app2="$home2/app"
app3="$scratch/copied home/app"
rel_home="rel/home"
rel_app="$scratch/$rel_home/app"
all_apps=("$app" "$app2" "$app3" "$rel_app")
stop_all() {
  local each
  for each in "${all_apps[@]}"; do
    if [[ -f $each/down.js ]]; then
      (cd "$each" && node down.js >/dev/null 2>&1) || true
    fi
  done
}
# A run that was killed outright (a ctest timeout) may have left its servers behind.
stop_all
rm -rf -- "$scratch"
mkdir -p -- "$scratch"
cd -- "$scratch"

offset=""
for _ in $(seq 1 50); do
  candidate=$(((RANDOM * 32768 + RANDOM) % 20000))
  if bindable $((5199 + candidate)); then
    offset=$candidate
    break
  fi
done
[[ -n $offset ]] || fail "no free port found between 5199 and 25198"
port=$((5199 + offset))
url="http://127.0.0.1:$port/home/"
export ZORVEL_PORT_OFFSET=$offset
echo "product home: $home"
echo "address: $url"

# Servers the test runs as its own children rather than through up.js.
foreign_pid=""
hand_pid=""
cleanup() {
  stop_all
  local each
  for each in "$foreign_pid" "$hand_pid"; do
    [[ -n $each ]] || continue
    kill "$each" 2>/dev/null || true
    wait "$each" 2>/dev/null || true
  done
}
trap cleanup EXIT

# Exited counts as gone even before the process is reaped: an orphan's reaper may be slow.
gone() {
  local stat
  stat=$(cat "/proc/$1/stat" 2>/dev/null) || return 0
  stat=${stat##*) }
  [[ ${stat:0:1} == [ZX] ]]
}
server_pid() { cat -- "$app/.zorvel/run/server.pid" 2>/dev/null; }
# Processes running this home's server.js, by their exact command line.
server_count() {
  local count=0 proc
  for proc in /proc/[0-9]*; do
    # Processes come and go while we look; a vanished one just does not count.
    { tr '\0' '\n' <"$proc/cmdline"; } 2>/dev/null | grep -qxF -- "$app/server.js" && count=$((count + 1))
  done
  echo "$count"
}
page_answers() { curl -fsS --max-time 2 -o "$scratch/page.html" "$url" 2>/dev/null; }
# The X-Varnholt-Instance header of whatever answers on /home/.
instance_header() {
  curl -fsS --max-time 2 -o /dev/null -D - "$url" 2>/dev/null | tr -d '\r' |
    sed -n 's/^x-varnholt-instance: //Ip'
}
# The token an app folder's server is known by: the first line of its instance file.
instance_token() { head -n 1 -- "$1/.zorvel/instance" 2>/dev/null; }

# Runs install.sh like the launcher: stdout and stderr into one pipe, read until it closes.
# A server that kept the pipe open would keep the reader waiting, so the reader gives up after
# 10 s and the test fails on that.
launcher_install() {
  local out=$1
  shift
  set +e
  {
    readlink "/proc/$BASHPID/fd/1" >"$out.pipe"
    status=0
    env KESTRAVINE_NO_OPEN=1 ZORVEL_PORT_OFFSET="$offset" "$@" \
      /bin/bash "$install_sh" --from "$tarball" || status=$?
    echo "$status" >"$out.status"
  } 2>&1 | timeout 10 cat >"$out"
  reader=${PIPESTATUS[1]}
  set -e
  [[ $reader != 124 ]] || fail "the install's output pipe stayed open after it exited" "$out"
  install_status=$(cat -- "$out.status")
  launcher_pipe=$(cat -- "$out.pipe")
}

# Starts the services like the launcher does for an installed product: a login shell (which
# resets PATH to the system's) running npm in the app folder (the first home's unless given),
# output read until it closes.
launcher_up() {
  local out=$1 dir=${2:-$app} started
  started=$(now_ms)
  set +e
  {
    status=0
    (cd "$dir" && /bin/bash -lc "npm run -s zorvel:up") || status=$?
    echo "$status" >"$out.status"
  } 2>&1 | timeout 10 cat >"$out"
  reader=${PIPESTATUS[1]}
  set -e
  up_elapsed=$(($(now_ms) - started))
  [[ $reader != 124 ]] || fail "zorvel:up's output pipe stayed open after it exited" "$out"
  [[ $(cat -- "$out.status") == 0 ]] || fail "zorvel:up exited $(cat -- "$out.status")" "$out"
  ((up_elapsed < 8000)) || fail "zorvel:up took $up_elapsed ms" "$out"
}

# --- install ------------------------------------------------------------------------------------

started=$(now_ms)
launcher_install "$scratch/install-1.log" KESTRAVINE_HOME="$home"
elapsed=$(($(now_ms) - started))
[[ $install_status == 0 ]] || fail "install exited with $install_status" "$scratch/install-1.log"
pass "install exited 0 and closed its output in $elapsed ms"
((elapsed < 8000)) || fail "install took $elapsed ms"
lines=$(wc -l <"$scratch/install-1.log")
((lines >= 20)) || fail "install printed only $lines lines" "$scratch/install-1.log"
grep -q $'\e\\[32m' "$scratch/install-1.log" || fail "install printed no colour" "$scratch/install-1.log"
pass "install printed $lines lines, with colour"
[[ -d $app ]] || fail "no $app after install"
[[ ! -e pwned && ! -e $home/pwned ]] || fail "the home path was evaluated somewhere"
shopt -s nullglob
leftovers=("$home"/.staging.* "$home"/.previous.*)
shopt -u nullglob
((${#leftovers[@]} == 0)) || fail "install left ${leftovers[*]}"

# The launcher starts probing right away; the install waits for the server, so it should answer.
if page_answers; then
  pass "the page answered on the first probe"
else
  wait_until 10000 page_answers || fail "nothing answers at $url" "$app/.zorvel/logs/monitor.log"
  pass "the page answered after polling"
fi
grep -qF '<title>Varnholt</title>' "$scratch/page.html" || fail "the page has the wrong title" "$scratch/page.html"
pass "GET /home/ answers with <title>Varnholt</title>"

token=$(instance_token "$app") || fail "install wrote no instance token" "$scratch/install-1.log"
[[ $token =~ ^[0-9a-f]{32}$ ]] || fail "the instance token is '$token'"
mode=$(stat -c %a -- "$app/.zorvel/instance")
[[ $mode == 600 ]] || fail "the instance file has mode $mode"
[[ $(instance_header) == "$token" ]] || fail "/home/ sends X-Varnholt-Instance '$(instance_header)', not the home's token"
pass "install wrote a private instance token, and the server sends it"

redirect=$(curl -sS --max-time 2 -o /dev/null -w '%{http_code} %{redirect_url}' "http://127.0.0.1:$port/")
[[ $redirect == "302 $url" ]] || fail "/ answered '$redirect'"
missing=$(curl -sS --max-time 2 -o /dev/null -w '%{http_code}' "http://127.0.0.1:$port/nothing-here")
[[ $missing == 404 ]] || fail "/nothing-here answered $missing"
pass "/ redirects to /home/, unknown paths are 404"

log="$app/.zorvel/logs/monitor.log"
[[ -f $log ]] || fail "no $log"
wait_until 3000 grep -qF 'GET /home/ 200' "$log" || fail "the log has no request line" "$log"
pass "monitor.log records requests"

pid=$(server_pid) || fail "no pid file"
[[ $(readlink "/proc/$pid/fd/0") == /dev/null ]] || fail "the server's stdin is not /dev/null"
[[ $(readlink "/proc/$pid/fd/1") == "$log" ]] || fail "the server's stdout is not the log"
[[ $(readlink "/proc/$pid/fd/2") == "$log" ]] || fail "the server's stderr is not the log"
# Node has pipes of its own; only the launcher's one must not be among them.
for fd in /proc/"$pid"/fd/*; do
  target=$(readlink "$fd" || true)
  [[ $target != "$launcher_pipe" && $target != *.install.lock ]] || fail "the server holds $target on ${fd##*/}"
done
[[ $(ps -o sid= -p "$pid" | tr -d ' ') == "$pid" ]] || fail "the server is not in a session of its own"
pass "the server (pid $pid) is detached: own session, stdin /dev/null, output to the log, not the install's pipe"

# --- start again, the launcher's way: no second server ------------------------------------------

launcher_up "$scratch/up-1.log"
[[ $(server_pid) == "$pid" ]] || fail "zorvel:up replaced the running server" "$scratch/up-1.log"
[[ $(server_count) == 1 ]] || fail "$(server_count) servers run after zorvel:up"
page_answers || fail "the page stopped answering"
pass "zorvel:up on a running server returned 0 in $up_elapsed ms and left pid $pid alone"

# --- install over the running copy --------------------------------------------------------------

launcher_install "$scratch/install-2.log" KESTRAVINE_HOME="$home"
[[ $install_status == 0 ]] || fail "reinstall exited with $install_status" "$scratch/install-2.log"
new_pid=$(server_pid) || fail "no pid file after reinstall" "$scratch/install-2.log"
[[ $new_pid != "$pid" ]] || fail "reinstall kept the old server"
gone "$pid" || fail "the old server $pid still runs after reinstall"
[[ $(server_count) == 1 ]] || fail "$(server_count) servers run after reinstall"
wait_until 10000 page_answers || fail "nothing answers after reinstall" "$scratch/install-2.log"
pass "reinstall replaced server $pid with $new_pid"
grep -qF "this home's Varnholt, stopped below" "$scratch/install-2.log" ||
  fail "reinstall did not say it stops this home's server" "$scratch/install-2.log"
[[ $(instance_token "$app") == "$token" ]] || fail "reinstall changed the instance token"
[[ $(instance_header) == "$token" ]] || fail "after reinstall /home/ sends '$(instance_header)', not the home's token"
pass "reinstall kept the instance token"

# --- stop -----------------------------------------------------------------------------------------

(cd "$app" && npm run -s zorvel:down) >"$scratch/down.log" 2>&1 || fail "zorvel:down failed" "$scratch/down.log"
wait_until 5000 port_closed || fail "port $port still open after zorvel:down" "$scratch/down.log"
gone "$new_pid" || fail "server $new_pid still runs after zorvel:down"
[[ ! -e $app/.zorvel/run/server.pid ]] || fail "the pid file outlived the server"
pass "zorvel:down stopped the server and closed the port"

# --- start the installed, stopped product the launcher's way -------------------------------------

# As an install by an older install.sh would be: without a token, which zorvel:up then makes.
rm -- "$app/.zorvel/instance"
launcher_up "$scratch/up-2.log"
# zorvel:up may give up waiting on a slow machine and still succeed; the launcher polls too.
wait_until 10000 page_answers || fail "nothing answers after zorvel:up" "$scratch/up-2.log" "$app/.zorvel/logs/monitor.log"
grep -qF '<title>Varnholt</title>' "$scratch/page.html" || fail "the page has the wrong title" "$scratch/page.html"
pid=$(server_pid) || fail "no pid file after zorvel:up" "$scratch/up-2.log"
[[ $(server_count) == 1 ]] || fail "$(server_count) servers run after zorvel:up"
pass "zorvel:up started server $pid and returned in $up_elapsed ms"
token=$(instance_token "$app") || fail "zorvel:up made no instance token" "$scratch/up-2.log"
mode=$(stat -c %a -- "$app/.zorvel/instance")
[[ $mode == 600 ]] || fail "the instance file zorvel:up made has mode $mode"
[[ $(instance_header) == "$token" ]] || fail "/home/ sends '$(instance_header)', not the token zorvel:up made"
pass "zorvel:up made a missing instance token, private, and the server sends it"

(cd "$app" && npm run -s zorvel:down) >"$scratch/down-2.log" 2>&1 || fail "zorvel:down failed" "$scratch/down-2.log"
wait_until 5000 port_closed || fail "port $port still open after zorvel:down" "$scratch/down-2.log"
gone "$pid" || fail "server $pid still runs after zorvel:down"
(cd "$app" && npm run -s zorvel:down) >"$scratch/down-3.log" 2>&1 || fail "a second zorvel:down failed" "$scratch/down-3.log"
pass "stopped again; zorvel:down with nothing running is harmless"

# --- another product home on the same port ----------------------------------------------------

launcher_up "$scratch/up-3.log"
wait_until 10000 page_answers || fail "nothing answers after zorvel:up" "$scratch/up-3.log"
pid=$(server_pid) || fail "no pid file after zorvel:up" "$scratch/up-3.log"

launcher_install "$scratch/install-3.log" KESTRAVINE_HOME="$home2"
[[ $install_status != 0 ]] || fail "the second home's install exited 0 with the port taken" "$scratch/install-3.log"
taken_line="Port $port is taken by another Varnholt (another product home)"
[[ $(grep -cF -- "$taken_line" "$scratch/install-3.log") == 1 ]] ||
  fail "the second home's install did not say once '$taken_line'" "$scratch/install-3.log"
grep -F -- "$taken_line" "$scratch/install-3.log" | grep -qF ZORVEL_PORT_OFFSET ||
  fail "up.js's line does not say how to get out" "$scratch/install-3.log"
! grep -qF 'stopped below' "$scratch/install-3.log" ||
  fail "the second home's install claims to stop the first home's server" "$scratch/install-3.log"
! grep -q 'Varnholt stopped' "$scratch/install-3.log" ||
  fail "the second home's install stopped a server" "$scratch/install-3.log"
pass "the second home's install fails ($install_status) naming another Varnholt, and stops nothing"

token2=$(instance_token "$app2") || fail "the second home has no instance token" "$scratch/install-3.log"
[[ $token2 != "$token" ]] || fail "two homes share a token"
[[ $(server_pid) == "$pid" ]] || fail "the first home's pid file changed"
! gone "$pid" || fail "the first home's server $pid is gone"
page_answers || fail "the first home's page stopped answering"
[[ $(instance_header) == "$token" ]] || fail "the port sends '$(instance_header)', not the first home's token"
(cd "$app2" && node down.js) >"$scratch/down-second.log" 2>&1 || fail "down.js in the second home failed" "$scratch/down-second.log"
! gone "$pid" || fail "down.js in the second home stopped the first home's server" "$scratch/down-second.log"
page_answers || fail "the first home's page stopped answering after down.js in the second home"
pass "the first home's server $pid keeps answering with its token, also after down.js in the second home"

# A home copied by hand carries the first home's token and pid file along; neither may make
# the copy take the first home's server for its own.
cp -a -- "$home" "${app3%/app}"
set +e
(cd "$app3" && node up.js) >"$scratch/up-copy.out" 2>"$scratch/up-copy.err"
status=$?
set -e
((status == 1)) || fail "up.js in a copied home exited $status" "$scratch/up-copy.out" "$scratch/up-copy.err"
grep -qF -- "$taken_line" "$scratch/up-copy.err" || fail "up.js in a copied home did not say '$taken_line'" "$scratch/up-copy.err"
[[ $(instance_token "$app3") != "$token" ]] || fail "the copied home kept the first home's token"
[[ $(cat -- "$app3/.zorvel/run/server.pid") == "$pid" ]] || fail "the copied home lost its copied pid file"
(cd "$app3" && node down.js) >"$scratch/down-copy.log" 2>&1 || fail "down.js in the copied home failed" "$scratch/down-copy.log"
! gone "$pid" || fail "down.js in the copied home stopped the first home's server" "$scratch/down-copy.log"
page_answers || fail "the first home's page stopped answering after down.js in the copied home"
pass "a copied home takes the first home's server neither for its own (up.js) nor as its to stop (down.js)"

(cd "$app" && npm run -s zorvel:down) >"$scratch/down-4.log" 2>&1 || fail "zorvel:down failed" "$scratch/down-4.log"
wait_until 5000 port_closed || fail "port $port still open after zorvel:down" "$scratch/down-4.log"

# --- another program on the port --------------------------------------------------------------

mkdir -p -- "$scratch/foreign"
if command -v python3 >/dev/null 2>&1; then
  python3 -m http.server --bind 127.0.0.1 --directory "$scratch/foreign" "$port" >"$scratch/foreign.log" 2>&1 &
else
  node -e 'require("http").createServer((q, s) => s.end("not Varnholt\n")).listen(Number(process.argv[1]), "127.0.0.1")' \
    "$port" >"$scratch/foreign.log" 2>&1 &
fi
foreign_pid=$!
foreign_answers() { curl -sS --max-time 2 -o /dev/null "$url" 2>/dev/null; }
wait_until 10000 foreign_answers || fail "the foreign server does not answer on $port" "$scratch/foreign.log"
set +e
(cd "$app" && env -u NO_COLOR node up.js) >"$scratch/up-foreign.out" 2>"$scratch/up-foreign.err"
status=$?
set -e
((status == 1)) || fail "up.js exited $status with another program on the port" "$scratch/up-foreign.out" "$scratch/up-foreign.err"
[[ $(wc -l <"$scratch/up-foreign.err") == 1 ]] || fail "up.js did not say it in one line" "$scratch/up-foreign.err"
grep -qF -- "Port $port is taken by another program" "$scratch/up-foreign.err" ||
  fail "up.js did not name another program" "$scratch/up-foreign.err"
grep -qF ZORVEL_PORT_OFFSET "$scratch/up-foreign.err" || fail "up.js did not say how to get out" "$scratch/up-foreign.err"
grep -q $'^\e\\[31m' "$scratch/up-foreign.err" || fail "up.js's line is not red" "$scratch/up-foreign.err"
[[ $(server_count) == 0 ]] || fail "up.js started a server next to another program"
! gone "$foreign_pid" || fail "the foreign server is gone" "$scratch/foreign.log"
pass "up.js refuses another program on port $port in one red line, exit 1"
kill "$foreign_pid"
wait "$foreign_pid" 2>/dev/null || true
foreign_pid=""
wait_until 5000 port_closed || fail "port $port still open after the foreign server ended"

# --- a relative product home ------------------------------------------------------------------

# install.sh runs in $scratch, so the home is $scratch/rel/home.
launcher_install "$scratch/install-rel.log" KESTRAVINE_HOME="$rel_home"
[[ $install_status == 0 ]] || fail "install into a relative home exited with $install_status" "$scratch/install-rel.log"
grep -qF "product home: $(pwd -P)/$rel_home" "$scratch/install-rel.log" ||
  fail "install did not make the relative home absolute" "$scratch/install-rel.log"
[[ -f $rel_app/server.js ]] || fail "no $rel_app after install" "$scratch/install-rel.log"
wait_until 10000 page_answers || fail "nothing answers after install into a relative home" "$scratch/install-rel.log"
rel_token=$(instance_token "$rel_app") || fail "no instance token in the relative home"
[[ $(instance_header) == "$rel_token" ]] || fail "the relative home's server does not send its token"
(cd "$rel_home/app" && npm run -s zorvel:down) >"$scratch/down-rel-1.log" 2>&1 || fail "zorvel:down failed" "$scratch/down-rel-1.log"
wait_until 5000 port_closed || fail "port $port still open after zorvel:down" "$scratch/down-rel-1.log"
launcher_up "$scratch/up-rel.log" "$rel_home/app"
wait_until 10000 page_answers || fail "nothing answers after zorvel:up in the relative home" "$scratch/up-rel.log"
[[ $(instance_header) == "$rel_token" ]] || fail "the relative home's server does not send its token"
(cd "$rel_home/app" && npm run -s zorvel:down) >"$scratch/down-rel-2.log" 2>&1 || fail "zorvel:down failed" "$scratch/down-rel-2.log"
wait_until 5000 port_closed || fail "port $port still open after zorvel:down" "$scratch/down-rel-2.log"
pass "a relative KESTRAVINE_HOME installs, starts and stops"

# Started by hand in the foreground ("npm start" runs it so) without a token, the server
# makes one itself.
rm -- "$rel_app/.zorvel/instance"
(cd "$rel_home/app" && exec node server.js) >"$scratch/server-rel.log" 2>&1 &
hand_pid=$!
wait_until 10000 page_answers || fail "the server started by hand does not answer" "$scratch/server-rel.log"
rel_token=$(instance_token "$rel_app") || fail "the server started by hand made no instance token"
[[ $(instance_header) == "$rel_token" ]] || fail "the server started by hand does not send the token it made"
# Not down.js: its command line names server.js relatively, so down.js does not know it as
# this home's; a foreground server is its starter's to stop.
kill "$hand_pid"
wait "$hand_pid" || fail "the server started by hand exited with $? on SIGTERM" "$scratch/server-rel.log"
hand_pid=""
wait_until 5000 port_closed || fail "port $port still open after the server started by hand ended"
pass "a server started by hand makes a missing instance token and sends it"

# --- an update cancelled at each of its steps ---------------------------------------------------
# The launcher cancels as here: SIGTERM to the install's process group, SIGKILL to whatever is
# left once 10 s have passed. Wherever the cancel lands, the home keeps one whole application
# that starts, with the logs of the one before, and nothing half done beside it.
cancel_home="$scratch/cancel home"
cancel_app="$cancel_home/app"
all_apps+=("$cancel_app")
older=${tarball##*/kestravine-}
older=${older%.tar.gz}
newer=${next_tarball##*/kestravine-}
newer=${newer%.tar.gz}
version_of() { node -p 'require(process.argv[1]).version' "$cancel_app/package.json"; }
# The older version installed and stopped, its log holding a line to look for.
install_older() {
  launcher_install "$scratch/cancel-older.log" KESTRAVINE_HOME="$cancel_home"
  [[ $install_status == 0 ]] || fail "installing $older exited $install_status" "$scratch/cancel-older.log"
  (cd "$cancel_app" && node down.js >/dev/null)
  echo "written by $older" >>"$cancel_app/.zorvel/logs/monitor.log"
}
install_older
cancels=0
for marker in "[1/6]" "[2/6]" "[3/6]" "[4/6]" "[5/6]" "[6/6]" "stopping the installed copy" \
  "kept the earlier logs" "installed in"; do
  [[ $(version_of) == "$older" ]] || install_older
  cancels=$((cancels + 1))
  out="$scratch/cancel-$cancels.log"
  setsid bash -c 'echo $$ >"$1"; shift; exec "$@"' _ "$scratch/cancel.pid" \
    env KESTRAVINE_NO_OPEN=1 KESTRAVINE_HOME="$cancel_home" /bin/bash "$install_sh" \
    --from "$next_tarball" >"$out" 2>&1 &
  runner=$!
  wait_until 10000 grep -qF -- "$marker" "$out" || fail "the update never printed '$marker'" "$out"
  group=$(cat -- "$scratch/cancel.pid")
  kill -TERM -- "-$group" 2>/dev/null || true
  wait_until 10000 bash -c "! kill -0 -- -$group 2>/dev/null" || kill -KILL -- "-$group" 2>/dev/null || true
  wait "$runner" 2>/dev/null || true
  shopt -s nullglob
  leftovers=("$cancel_home"/.staging.* "$cancel_home"/.previous.*)
  shopt -u nullglob
  ((${#leftovers[@]} == 0)) || fail "cancelled at '$marker': left ${leftovers[*]}" "$out"
  version=$(version_of) || fail "cancelled at '$marker': no application left" "$out"
  grep -qxF "written by $older" "$cancel_app/.zorvel/logs/monitor.log" ||
    fail "cancelled at '$marker': the log of $older is gone" "$out"
  (cd "$cancel_app" && node down.js >/dev/null) # the new server, if the cancel came that late
  launcher_up "$scratch/cancel-up.log" "$cancel_app"
  wait_until 10000 page_answers || fail "cancelled at '$marker': $version does not start" "$out"
  grep -qF "<dd>$version</dd>" "$scratch/page.html" || fail "cancelled at '$marker': not $version answers"
  (cd "$cancel_app" && node down.js >/dev/null)
  pass "an update to $newer cancelled at '$marker' leaves $version whole, with its logs, and it starts"
done

# --- bad --from -----------------------------------------------------------------------------------

# With KESTRAVINE_HOME empty the home is $HOME/.kestravine; none of these may create it.
user_home="$scratch/user home"
mkdir -p -- "$user_home"
expect_failure() {
  local name=$1 message=$2
  shift 2
  set +e
  env KESTRAVINE_NO_OPEN=1 ZORVEL_PORT_OFFSET="$offset" KESTRAVINE_HOME= HOME="$user_home" \
    /bin/bash "$install_sh" "$@" >"$scratch/$name.out" 2>"$scratch/$name.err"
  local status=$?
  set -e
  ((status != 0)) || fail "install $name exited 0" "$scratch/$name.out"
  grep -qF -- "$message" "$scratch/$name.err" ||
    fail "install $name did not say '$message' on stderr" "$scratch/$name.out" "$scratch/$name.err"
  [[ ! -e $user_home/.kestravine ]] || fail "install $name created the product home"
  pass "install $name fails ($status) and says so"
}
expect_failure missing-file "does not exist: $scratch/missing.tar.gz" --from "$scratch/missing.tar.gz"
grep -qF "product home: $user_home/.kestravine" "$scratch/missing-file.out" ||
  fail "an empty KESTRAVINE_HOME did not mean \$HOME/.kestravine" "$scratch/missing-file.out"
expect_failure no-argument "no tarball given"
expect_failure empty-from "needs a tarball path" --from
printf 'not a tarball\n' >"$scratch/garbage.tar.gz"
expect_failure garbage "not a readable .tar.gz" --from "$scratch/garbage.tar.gz"

echo "all demo checks passed"
