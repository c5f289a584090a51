#!/usr/bin/env bash
# One launcher per product home, with real launchers on the offscreen platform: a second launch
# of a home (by another path to it too) starts nothing and ends with 0, saying so on a terminal;
# another home runs beside it; a launcher finishing windowless still holds its home, and a new
# launch says so; a killed launcher blocks nobody; launchers that ended normally leave no file.
# The guard lives only where the user alone can write: a runtime directory another user owns is
# passed over, and with no such place at all one Chinese line says so.
set -euo pipefail
launcher=$1
scratch=$2
rm -rf "$scratch"
mkdir -p "$scratch/product/bin" "$scratch/product/share/kestravine" "$scratch/home1" \
  "$scratch/home2"
tmp=$(cd "$scratch" && pwd)
die() { echo "FAIL: $*" >&2; exit 1; }
# Polls a condition for up to 30 s.
wait_until() {
  for _ in $(seq 1 600); do "$@" && return 0; sleep 0.05; done
  die "timed out waiting for: $*"
}
pids=()
cleanup() {
  for p in "${pids[@]}"; do kill -9 "$p" 2>/dev/null || true; done
  pkill -9 -f "$tmp/product/" || true  # later launchers that did not end, and their installs
}
trap cleanup EXIT

# The product: an install script that notes each run in its home and waits at a gate.
cp "$launcher" "$tmp/product/bin/"
: >"$tmp/product/share/kestravine/kestravine-9.9.9.tar.gz"
cat >"$tmp/product/share/kestravine/install.sh" <<'SCRIPT'
echo run >>"$KESTRAVINE_HOME/installs"
read -r status <"$KESTRAVINE_HOME/gate"
exit "$status"
SCRIPT
for home in home1 home2; do mkfifo "$tmp/$home/gate"; done
ln -s home1 "$tmp/link"
mkdir -m 0700 "$tmp/run"
export XDG_RUNTIME_DIR=$tmp/run QT_QPA_PLATFORM=offscreen KESTRAVINE_LAUNCHER_AUTOSTART=1
# The first launcher of a home, in the background: $! is the launcher itself.
run() { KESTRAVINE_HOME=$1 exec "$tmp/product/bin/${launcher##*/}" 2>>"$tmp/first.err"; }
installs() { [[ $(cat "$tmp/$1/installs" 2>/dev/null | wc -l) -eq $2 ]]; }
# A later launch: ends by itself (a hang is a second launcher running) with `status`. A hanging
# one is killed: asked to end, it would wait for the install it started.
later() {
  local home=$1 status=0
  timeout -k 5 20 "${@:3}" env KESTRAVINE_HOME="$home" "$tmp/product/bin/${launcher##*/}" \
    >"$tmp/out" 2>"$tmp/err" || status=$?
  [[ $status -eq $2 ]] || die "a later launch of $home ended with $status: $(cat "$tmp/out" "$tmp/err")"
}

run "$tmp/home1" & pids+=($!); first=$!
wait_until installs home1 1
for home in "$tmp/home1" "$tmp/link/" "$tmp/home2/../home1" home1 ./home1// link; do
  # Relative spellings are taken from the working directory, as the install script takes them.
  (cd "$tmp" && later "$home" 0)
  [[ ! -s $tmp/out && ! -s $tmp/err ]] || die "said something without a terminal: $(cat "$tmp/out" "$tmp/err")"
done
status=0
timeout -k 5 20 script -qec "KESTRAVINE_HOME='$tmp/home1' '$tmp/product/bin/${launcher##*/}'" /dev/null \
  >"$tmp/out" || status=$?
[[ $status -eq 0 && $(grep -c 已把它的窗口带到前面 "$tmp/out") -eq 1 ]] ||
  die "on a terminal: status $status, said: $(cat "$tmp/out")"
installs home1 1 || die "a later launch installed again"
echo "ok: later launches of one home start nothing, end with 0, say so on a terminal only"

run "$tmp/home2" & pids+=($!); other=$!
wait_until installs home2 1
kill -0 "$first" || die "the first launcher ended"
echo "ok: another home runs beside it"

# Closed (here by SIGTERM) while its install runs: still holds the home until the install ends.
kill -TERM "$first"
finishing() { later "$tmp/home1" 0; grep -q 还在等它的命令结束 "$tmp/err"; }
wait_until finishing
installs home1 1 || die "installed again while the first was finishing"
echo 0 >"$tmp/home1/gate"
status=0
wait "$first" || status=$?
[[ $status -eq 0 ]] || die "the finishing launcher ended with $status"
echo "ok: a launcher finishing windowless holds its home, and a new launch says so"

# Killed, the launcher of home2 blocks nobody: the next one installs.
kill -9 "$other"
wait "$other" 2>/dev/null || true
run "$tmp/home2" & pids+=($!); next=$!
wait_until installs home2 2
echo 3 >"$tmp/home2/gate"
kill -TERM "$next"
wait "$next" || die "the next launcher ended with $?"
echo "ok: after a killed launcher, the next one starts normally"

# Every launcher here has ended, the last ones normally: nothing of the guard is left.
left=$(ls -A "$tmp/run/kestravine-launcher")
[[ -z $left ]] || die "the guard's files outlive their launchers: $left"
echo "ok: launchers that end normally leave no file behind"

# A runtime directory that another user owns and anyone may write is passed over: the guard
# goes to the user's own cache folder, and still holds.
if [[ $(id -u) -eq 0 ]]; then
  mkdir -m 0777 "$tmp/their-run"
  chown 65534 "$tmp/their-run"
  export XDG_RUNTIME_DIR=$tmp/their-run HOME=$tmp/user-home
  mkdir -p "$HOME/.cache"
  # /run/user/<uid> comes before the cache folder where it exists.
  guard=$HOME/.cache/kestravine-launcher
  [[ -d /run/user/0 ]] && guard=/run/user/0/kestravine-launcher
  : >"$tmp/first.err"
  run "$tmp/home1" & pids+=($!); first=$!
  wait_until installs home1 2
  [[ -z $(ls -A "$tmp/their-run") ]] || die "used another user's runtime directory: $(ls -A "$tmp/their-run")"
  [[ -n $(ls -A "$guard") ]] || die "no guard in $guard"
  later "$tmp/home1" 0
  installs home1 2 || die "a second launcher ran beside the first"
  echo 0 >"$tmp/home1/gate"
  kill -TERM "$first"
  wait "$first" || die "the launcher ended with $?"
  echo "ok: a runtime directory of another user is passed over, and the guard still holds"
else
  echo "skipped: only root can make a folder that belongs to another user here"
fi

# No place of the user's own at all: one Chinese line, and the launcher still runs.
if [[ ! -e /run/user/$(id -u) ]]; then
  export HOME=$tmp/no-such-home
  unset XDG_RUNTIME_DIR
  : >"$tmp/first.err"
  KESTRAVINE_LAUNCHER_SHOT=$tmp/shot.png KESTRAVINE_LAUNCHER_AUTOSTART=0 \
    timeout -k 5 30 "$tmp/product/bin/${launcher##*/}" 2>"$tmp/first.err" ||
    die "the unguarded launcher ended with $?"
  [[ -s $tmp/shot.png ]] || die "the unguarded launcher showed no window"
  grep -q '^kestravine-launcher：找不到只属于你的文件夹来放单实例锁，这次不防重复打开。$' "$tmp/first.err" ||
    die "no line about the missing guard: $(cat "$tmp/first.err")"
  # Nor any English note of the toolkit about the runtime directory.
  ! grep -q QStandardPaths "$tmp/first.err" || die "the toolkit's note reached the terminal: $(cat "$tmp/first.err")"
  echo "ok: without a place of its own the launcher says so and runs; no note of the toolkit"
else
  echo "skipped: /run/user/$(id -u) exists, so there is always a place of the user's own"
fi
