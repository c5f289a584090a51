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
# name | arguments | environment | own namespace | status | stream | the output must contain
rows="
help                 | --help                     |                                                  | no  | 0 | out | 用法：kestravine-launcher
help, short          | -h                         |                                                  | no  | 0 | out | KESTRAVINE_LAUNCHER_SHOT
version              | --version                  |                                                  | no  | 0 | out | kestravine-launcher 0.
version among others | file:///x.html --version   |                                                  | no  | 0 | out | kestravine-launcher 0.
nothing set          |                            |                                                  | no  | 1 | err | 都没有设置
nothing set, a file  | /tmp/some.html             |                                                  | no  | 1 | err | 都没有设置
X server gone        |                            | DISPLAY=:0                                       | yes | 1 | err | xcb：启动失败；DISPLAY=:0
X gone, both listed  |                            | QT_QPA_PLATFORM=wayland;xcb DISPLAY=:0           | yes | 1 | err | xcb：启动失败；DISPLAY=:0
Wayland, no socket   |                            | WAYLAND_DISPLAY=wayland-none XDG_RUNTIME_DIR=$rt | no  | 1 | err | WAYLAND_DISPLAY=wayland-none
Wayland, no runtime  |                            | WAYLAND_DISPLAY=wayland-none                     | no  | 1 | err | WAYLAND_DISPLAY=wayland-none
Wayland, socket path |                            | WAYLAND_DISPLAY=$rt/none                         | no  | 1 | err | WAYLAND_DISPLAY=$rt/none
forced xcb           |                            | QT_QPA_PLATFORM=xcb                              | no  | 1 | err | xcb：启动失败
forced Wayland       |                            | QT_QPA_PLATFORM=wayland XDG_RUNTIME_DIR=$rt      | no  | 1 | err | 试过 Qt 平台 wayland
made-up platform     |                            | QT_QPA_PLATFORM=no-such-platform                 | no  | 1 | err | no-such-platform：没有这个平台
made-up, by argument | -platform no-such-platform |                                                  | no  | 1 | err | no-such-platform：没有这个平台
"

trim() { local s=$1; s=${s#"${s%%[![:space:]]*}"}; printf '%s' "${s%"${s##*[![:space:]]}"}"; }

failures=0
while IFS='|' read -r name args environment own status stream expected; do
  name=$(trim "$name")
  [[ -n $name ]] || continue
  read -r -a args <<<"$args"
  read -r -a environment <<<"$environment"
  own=$(trim "$own") status=$(trim "$status") stream=$(trim "$stream") expected=$(trim "$expected")
  command=(env -i "HOME=$scratch/home" PATH=/usr/bin:/bin "KESTRAVINE_HOME=$scratch/product"
    "${environment[@]}" "$launcher" "${args[@]}")
  if [[ $own == yes ]]; then
    command=("${namespace[@]}" bash -c 'mount -t tmpfs tmpfs /tmp/.X11-unix && exec "$@"' isolated
      "${command[@]}")
  fi
  actual=0
  (cd "$scratch/cwd" && timeout 60 "${command[@]}") >"$scratch/out" 2>"$scratch/err" || actual=$?

  problems=()
  ((actual == status)) || problems+=("exit status $actual, not $status")
  if [[ $stream == out ]]; then
    [[ ! -s $scratch/err ]] || problems+=("stderr not empty")
    shown=$scratch/out
  else
    [[ ! -s $scratch/out ]] || problems+=("stdout not empty")
    [[ $(wc -l <"$scratch/err") == 1 && $(tail -c1 "$scratch/err" | od -An -c) == *'\n'* ]] ||
      problems+=("stderr is not exactly one line")
    grep -qP '[\x{4e00}-\x{9fff}]' "$scratch/err" || problems+=("the line is not Chinese")
    ! grep -qi 'reinstall' "$scratch/err" || problems+=("advice to reinstall")
    shown=$scratch/err
  fi
  grep -qF -- "$expected" "$shown" || problems+=("no \"$expected\" in the output")
  [[ -z $(ls -A "$scratch/cwd") ]] || problems+=("left files behind: $(ls -A "$scratch/cwd")")

  if ((${#problems[@]})); then
    failures=$((failures + 1))
    echo "FAIL $name: $(IFS=';'; echo "${problems[*]}")"
    sed 's/^/  stdout: /' "$scratch/out"
    sed 's/^/  stderr: /' "$scratch/err"
  else
    echo "ok   $name: $(head -n1 "$shown")"
  fi
done <<<"$rows"
((failures == 0)) || { echo "$failures failed"; exit 1; }
