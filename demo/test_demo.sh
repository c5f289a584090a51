#!/usr/bin/env bash
# Installs the demo product the way the launcher does, then starts it again, reinstalls it over
# itself and stops it; and makes sure a bad --from fails loudly without touching anything.
#
#   test_demo.sh <built install.sh> <built tarball> <scratch folder>
#
# Exit status 77 when node, npm or curl is missing (the test is skipped).
set -euo pipefail

install_sh=$1
tarball=$2
scratch=$3

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
# A run that was killed outright (a ctest timeout) may have left its server behind.
if [[ -f $app/down.js ]]; then
  (cd "$app" && node down.js >/dev/null 2>&1) || true
fi
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

cleanup() {
  if [[ -f $app/down.js ]]; then
    (cd "$app" && node down.js >/dev/null 2>&1) || true
  fi
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
# resets PATH to the system's) running npm in the app folder, output read until it closes.
launcher_up() {
  local out=$1 started
  started=$(now_ms)
  set +e
  {
    status=0
    (cd "$app" && /bin/bash -lc "npm run -s zorvel:up") || status=$?
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

# --- stop -----------------------------------------------------------------------------------------

(cd "$app" && npm run -s zorvel:down) >"$scratch/down.log" 2>&1 || fail "zorvel:down failed" "$scratch/down.log"
wait_until 5000 port_closed || fail "port $port still open after zorvel:down" "$scratch/down.log"
gone "$new_pid" || fail "server $new_pid still runs after zorvel:down"
[[ ! -e $app/.zorvel/run/server.pid ]] || fail "the pid file outlived the server"
pass "zorvel:down stopped the server and closed the port"

# --- start the installed, stopped product the launcher's way -------------------------------------

launcher_up "$scratch/up-2.log"
# zorvel:up may give up waiting on a slow machine and still succeed; the launcher polls too.
wait_until 10000 page_answers || fail "nothing answers after zorvel:up" "$scratch/up-2.log" "$app/.zorvel/logs/monitor.log"
grep -qF '<title>Varnholt</title>' "$scratch/page.html" || fail "the page has the wrong title" "$scratch/page.html"
pid=$(server_pid) || fail "no pid file after zorvel:up" "$scratch/up-2.log"
[[ $(server_count) == 1 ]] || fail "$(server_count) servers run after zorvel:up"
pass "zorvel:up started server $pid and returned in $up_elapsed ms"

(cd "$app" && npm run -s zorvel:down) >"$scratch/down-2.log" 2>&1 || fail "zorvel:down failed" "$scratch/down-2.log"
wait_until 5000 port_closed || fail "port $port still open after zorvel:down" "$scratch/down-2.log"
gone "$pid" || fail "server $pid still runs after zorvel:down"
(cd "$app" && npm run -s zorvel:down) >"$scratch/down-3.log" 2>&1 || fail "a second zorvel:down failed" "$scratch/down-3.log"
pass "stopped again; zorvel:down with nothing running is harmless"

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
