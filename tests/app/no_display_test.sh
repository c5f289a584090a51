#!/usr/bin/env bash
# The real launcher where no window can be shown: --help and --version answer on stdout with 0;
# every desktop that cannot be reached (none named, an X server that is gone, a Wayland socket
# that is not there, a platform that cannot start or does not exist) gives exactly one Chinese
# line on stderr, naming what was tried, and exit status 1: no abort, no core, no advice to
# reinstall. Each run gets a bare environment (env -i).
#
# An X server that is gone, without guessing a free display number: the launcher runs in a
# network namespace of its own (no abstract sockets, no TCP listeners) with an empty tmpfs over
# /tmp/.X11-unix, so no server on the machine can answer ":0" there.
set -euo pipefail
launcher=$(realpath "$1")
scratch=$2
rm -rf "$scratch"
mkdir -p "$scratch/home" "$scratch/product" "$scratch/cwd" "$scratch/runtime"
chmod 700 "$scratch/runtime"
export LC_ALL=C.UTF-8

namespace=(unshare --net --mount)
((EUID == 0)) || namespace+=(--user --map-root-user)
# What systemd-tmpfiles creates at boot; needed as the mount point.
[[ -d /tmp/.X11-unix ]] || install -d -m 1777 /tmp/.X11-unix
"${namespace[@]}" true || { echo "cannot create a network and mount namespace (unshare)"; exit 1; }

rt=$scratch/runtime
# Options: name | the launcher's arguments | stdout must contain (status 0, stderr empty)
options="
help            | --help                   | 用法：kestravine-launcher
help, short     | -h                       | KESTRAVINE_LAUNCHER_SHOT
version         | --version                | kestravine-launcher 0.
version, a file | file:///x.html --version | kestravine-launcher 0.
"
# Desktops: name | own network namespace | environment, then -- and the launcher's arguments |
# the one line on stderr must contain (status 1, stdout empty)
desktops="
nothing set     | no  |                                                  | 都没有设置
a file given    | no  | -- /tmp/some.html                                | 都没有设置
empty DISPLAY   | no  | DISPLAY= WAYLAND_DISPLAY=                        | 都没有设置
X gone          | yes | DISPLAY=:0                                       | xcb：启动失败；DISPLAY=:0
X gone, a list  | yes | QT_QPA_PLATFORM=wayland;xcb DISPLAY=:0           | xcb：启动失败；DISPLAY=:0
no socket       | no  | WAYLAND_DISPLAY=wayland-none XDG_RUNTIME_DIR=$rt | =wayland-none
no runtime dir  | no  | WAYLAND_DISPLAY=wayland-none                     | =wayland-none
socket path     | no  | WAYLAND_DISPLAY=$rt/none                         | =$rt/none
forced xcb      | no  | QT_QPA_PLATFORM=xcb                              | xcb：启动失败
forced Wayland  | no  | QT_QPA_PLATFORM=wayland XDG_RUNTIME_DIR=$rt      | wayland：启动失败
made up         | no  | QT_QPA_PLATFORM=no-such-platform                 | no-such-platform：没有
made up, option | no  | -- -platform no-such-platform                    | no-such-platform：没有
"

trim() { local s=$1; s=${s#"${s%%[![:space:]]*}"}; printf '%s' "${s%"${s##*[![:space:]]}"}"; }

failures=0
# check <name> <own namespace> <stream> <must contain> <environment... -- arguments...>
check() {
  local name=$1 own=$2 stream=$3 expected=$4
  shift 4
  local environment=()
  while (($#)) && [[ $1 != -- ]]; do environment+=("$1") && shift; done
  (($#)) && shift
  local command=(env -i "HOME=$scratch/home" PATH=/usr/bin:/bin "KESTRAVINE_HOME=$scratch/product"
    "${environment[@]}" "$launcher" "$@")
  if [[ $own == yes ]]; then
    command=("${namespace[@]}" bash -c 'mount -t tmpfs tmpfs /tmp/.X11-unix && exec "$@"' isolated
      "${command[@]}")
  fi
  local status=0
  (cd "$scratch/cwd" && timeout 60 "${command[@]}") >"$scratch/out" 2>"$scratch/err" || status=$?

  local problems=() shown
  if [[ $stream == out ]]; then
    ((status == 0)) || problems+=("exit status $status, not 0")
    [[ ! -s $scratch/err ]] || problems+=("stderr not empty")
    shown=$scratch/out
  else
    ((status == 1)) || problems+=("exit status $status, not 1")
    [[ ! -s $scratch/out ]] || problems+=("stdout not empty")
    [[ $(wc -l <"$scratch/err") == 1 && $(tail -c1 "$scratch/err" | od -An -c) == *'\n'* ]] ||
      problems+=("stderr is not exactly one line")
    grep -qP '[\x{4e00}-\x{9fff}]' "$scratch/err" || problems+=("the line is not Chinese")
    ! grep -qi 'reinstall' "$scratch/err" || problems+=("advice to reinstall")
    shown=$scratch/err
  fi
  grep -qF -- "$expected" "$shown" || problems+=("no \"$expected\" in the output")
  [[ -z $(ls -A "$scratch/cwd") ]] || problems+=("left files behind: $(ls -A "$scratch/cwd")")
  # The one-launcher guard's files go with every end that is not a kill.
  [[ -z $(ls -A "$rt/kestravine-launcher" 2>/dev/null) ]] ||
    problems+=("left the guard's files: $(ls -A "$rt/kestravine-launcher")")

  if ((${#problems[@]})); then
    failures=$((failures + 1))
    echo "FAIL $name: $(IFS=';' && echo "${problems[*]}")"
    sed 's/^/  stdout: /' "$scratch/out"
    sed 's/^/  stderr: /' "$scratch/err"
  else
    echo "ok   $name: $(head -n1 "$shown")"
  fi
}

while IFS='|' read -r name arguments expected; do
  [[ -n $(trim "$name") ]] || continue
  read -r -a arguments <<<"$arguments"
  check "$(trim "$name")" no out "$(trim "$expected")" -- "${arguments[@]}"
done <<<"$options"
while IFS='|' read -r name own command_line expected; do
  [[ -n $(trim "$name") ]] || continue
  read -r -a command_line <<<"$command_line"
  check "$(trim "$name")" "$(trim "$own")" err "$(trim "$expected")" "${command_line[@]}"
done <<<"$desktops"

# Its standard streams into a pipe whose reader has gone: the launcher's words are lost, the
# launcher is not. Without a desktop, and for --version whose answer could not be written, it
# ends with 1, never by SIGPIPE.
for arguments in "" "--version"; do
  status=$(python3 - "$launcher" $arguments <<'PY'
import os, subprocess, sys
read_end, write_end = os.pipe()
os.close(read_end)
run = subprocess.run(sys.argv[1:], stdout=write_end, stderr=write_end, env={"HOME": "/nonexistent"})
print(run.returncode)
PY
)
  if [[ $status == 1 ]]; then
    echo "ok   a pipe with no reader${arguments:+, $arguments}: status $status"
  else
    echo "FAIL a pipe with no reader${arguments:+, $arguments}: status $status (a negative one is a signal)"
    failures=$((failures + 1))
  fi
done

# Too few descriptors, by the limit (swept) or by the first pipe the system refuses: one Chinese
# line naming the cause and the limit, and 1, never a signal nor the desktop's line; the guard's
# files are gone afterwards. From the limit the launcher needs on, it starts.
limits="
8  | 1 | 最多只能同时打开 8 个文件，至少要 32 个
9  | 1 | 最多只能同时打开 9 个文件
11 | 1 | 最多只能同时打开 11 个文件
12 | 1 | 最多只能同时打开 12 个文件
13 | 1 | 最多只能同时打开 13 个文件
20 | 1 | 最多只能同时打开 20 个文件
31 | 1 | 最多只能同时打开 31 个文件
32 | 0 |
64 | 0 |
"
while IFS='|' read -r n expected said; do
  n=$(echo $n) expected=$(echo $expected) said=$(echo $said)
  [[ -n $n ]] || continue
  status=0
  rm -f "$scratch/shot.png"
  (ulimit -n "$n" && exec env -i HOME="$scratch/home" XDG_RUNTIME_DIR="$rt" QT_QPA_PLATFORM=offscreen \
    KESTRAVINE_HOME="$scratch/product" KESTRAVINE_LAUNCHER_SHOT="$scratch/shot.png" "$launcher") \
    >"$scratch/out" 2>"$scratch/err" || status=$?
  left=$(ls "$rt/kestravine-launcher" 2>/dev/null || true)
  if [[ $status == "$expected" && -z $left ]] &&
    { [[ $expected == 0 && -s $scratch/shot.png ]] ||
      grep -q "^kestravine-launcher：能同时打开的文件不够用（EMFILE）：.*$said" "$scratch/err"; }; then
    echo "ok   ulimit -n $n: status $status"
  else
    echo "FAIL ulimit -n $n: status $status, left: $left, said: $(cat "$scratch/err")"
    failures=$((failures + 1))
  fi
done <<<"$limits"
# Not "ldd | grep -q": grep leaving early would end ldd by SIGPIPE, which pipefail counts.
if [[ $(ldd "$launcher" 2>/dev/null) == *libasan* ]]; then
  # The sanitizers check memory through a pipe of their own, which the refused pipe2 breaks.
  echo "skipped: the first pipe refused (a sanitizer build checks memory through pipe2)"
elif command -v strace >/dev/null; then
  status=0
  env -i HOME="$scratch/home" XDG_RUNTIME_DIR="$rt" QT_QPA_PLATFORM=offscreen \
    KESTRAVINE_HOME="$scratch/product" strace -f -o /dev/null -e trace=pipe2 \
    -e inject=pipe2:error=EMFILE:when=1 "$launcher" >"$scratch/out" 2>"$scratch/err" || status=$?
  left=$(ls "$rt/kestravine-launcher" 2>/dev/null || true)
  if [[ $status == 1 && -z $left ]] &&
    grep -q '^kestravine-launcher：能同时打开的文件不够用（EMFILE）：已经用到上限' "$scratch/err"; then
    echo "ok   the first pipe refused: $(cat "$scratch/err")"
  else
    echo "FAIL the first pipe refused: status $status, left: $left, said: $(cat "$scratch/err")"
    failures=$((failures + 1))
  fi
else
  echo "skipped: the first pipe refused (no strace)"
fi

# A system that refuses the launcher a thread from the start (a process limit, which only binds
# a user other than root): one Chinese line naming the reason, and 1; never an abort.
# The user is one of the test's own, which no other process runs as, so nothing outside the test
# counts towards the limit.
other=$( ((EUID == 0)) && bash "$(dirname "${BASH_SOURCE[0]}")/../support/unused_uid.sh" || true)
if [[ -n $other ]] &&
  ! setpriv --reuid="$other" --regid="$other" --clear-groups test -x "$launcher"; then
  echo "skipped: no thread to be had (uid $other cannot run $launcher: a folder on its way is closed)"
  other=""
fi
if [[ -n $other ]]; then
  status=0
  timeout -s KILL 60 setpriv --reuid="$other" --regid="$other" --clear-groups \
    env -i HOME=/nonexistent QT_QPA_PLATFORM=offscreen prlimit --nproc=1 "$launcher" \
    >"$scratch/out" 2>"$scratch/err" || status=$?
  if [[ $status == 1 ]] && ! grep -q terminate "$scratch/err" &&
    grep -q '^kestravine-launcher：系统不让再开线程，窗口没法显示：.*（EAGAIN）。关掉一些程序再试。$' "$scratch/err"; then
    echo "ok   no thread to be had: $(tail -n1 "$scratch/err")"
  else
    echo "FAIL no thread to be had: status $status, said: $(cat "$scratch/err")"
    failures=$((failures + 1))
  fi
  # A limit reached once the window is up: the install is started and its log painted, which
  # Qt does on its own thread pool and waits for; the window must never freeze, whatever the
  # limit refuses. Either the launcher says no thread can be had, or its snapshot is taken.
  for limit in 2 3 4; do
    limited=$scratch/limited-$limit
    install -d -m 0777 "$limited"
    status=0
    timeout -s KILL 60 setpriv --reuid="$other" --regid="$other" --clear-groups \
      env -i HOME="$limited" QT_QPA_PLATFORM=offscreen KESTRAVINE_HOME="$limited/home" \
      KESTRAVINE_LAUNCHER_AUTOSTART=1 KESTRAVINE_LAUNCHER_SHOT="$limited/shot.png" \
      prlimit --nproc=$limit "$launcher" >"$scratch/out" 2>"$scratch/err" || status=$?
    if [[ $status == 0 && -s $limited/shot.png ]] ||
      { [[ $status == 1 ]] && grep -q '^kestravine-launcher：系统不让再开线程' "$scratch/err"; }; then
      echo "ok   at most $limit processes: status $status"
    else
      echo "FAIL at most $limit processes: status $status (137: frozen), said: $(cat "$scratch/err")"
      failures=$((failures + 1))
    fi
  done
elif ((EUID != 0)); then
  echo "skipped: no thread to be had (a process limit binds only a user other than root here)"
fi
((failures == 0)) || { echo "$failures failed"; exit 1; }
