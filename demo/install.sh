#!/usr/bin/env bash
# Installs Varnholt from a kestravine-<version>.tar.gz into the product home and starts it.
#
#   install.sh --from <tarball>
#
# Product home: $KESTRAVINE_HOME when non-empty, else $HOME/.kestravine. The application ends
# up in <home>/app and answers on http://127.0.0.1:<5199 + ZORVEL_PORT_OFFSET>/home/.
# KESTRAVINE_NO_OPEN=1 leaves the browser alone (the launcher opens it itself).
# KESTRAVINE_SKIP_ATTEST (non-empty) skips the checksum check of the unpacked files.
#
# Progress goes to stdout, errors to stderr; exit status 0 only when Varnholt was installed
# and started.
set -euo pipefail

if [[ -z ${NO_COLOR:-} ]]; then
  bold=$'\e[1m' green=$'\e[32m' yellow=$'\e[33m' red=$'\e[31m' cyan=$'\e[36m' reset=$'\e[0m'
else
  bold='' green='' yellow='' red='' cyan='' reset=''
fi

# A short pause between steps, so that whoever shows this log sees it arrive line by line.
pace() { sleep 0.05; }
step_no=0
step_count=6
step() {
  step_no=$((step_no + 1))
  pace
  printf '%s[%d/%d]%s %s%s%s\n' "$cyan" "$step_no" "$step_count" "$reset" "$bold" "$1" "$reset"
}
ok() { printf '      %s✓%s %s\n' "$green" "$reset" "$1"; }
info() { printf '        %s\n' "$1"; }
warn() { printf '      %s!%s %s\n' "$yellow" "$reset" "$1"; }
die() {
  printf '%serror:%s %s\n' "$red" "$reset" "$1" >&2
  shift
  local line
  for line in "$@"; do printf '       %s\n' "$line" >&2; done
  exit 1
}
usage() {
  printf 'usage: %s --from <kestravine-VERSION.tar.gz>\n' "${0##*/}"
}

# Who answers on the port: "ours" for this home's server, "varnholt" for another home's,
# "other" for anything else. This home's server sends the token of its instance file (read
# by the rules of common.js: it counts only in the folder it was made for, not in a copy);
# one too old to send a token is known by the pid file naming a live server.js of this home.
# The installed copy may predate all of this, so none of its code is used.
port_holder() {
  # shellcheck disable=SC2016 # JavaScript, not shell
  "$node_bin" -e '
    const fs = require("fs");
    const http = require("http");
    const path = require("path");
    const [port, app] = process.argv.slice(1);
    const read = (file) => {
      try {
        return fs.readFileSync(file, "utf8");
      } catch {
        return "";
      }
    };
    let appDir = null;
    try {
      appDir = fs.realpathSync(app);
    } catch {}
    const instance = read(path.join(app, ".zorvel", "instance"));
    const cut = instance.indexOf("\n");
    const token = appDir !== null && cut > 0 && instance.slice(cut + 1, -1) === appDir ? instance.slice(0, cut) : null;
    const pid = Number(read(path.join(app, ".zorvel", "run", "server.pid")).trim());
    const running = appDir !== null && Number.isInteger(pid) && pid > 0 &&
      read(`/proc/${pid}/cmdline`).split("\0").includes(path.join(appDir, "server.js"));
    const say = (word) => {
      process.stdout.write(`${word}\n`);
      process.exit(0);
    };
    const req = http.get({ host: "127.0.0.1", port: Number(port), path: "/home/", timeout: 2000 }, (res) => {
      const sent = res.headers["x-varnholt-instance"];
      let body = "";
      res.setEncoding("utf8");
      res.on("data", (chunk) => {
        if (body.length < 65536) body += chunk;
      });
      res.on("end", () => {
        if (sent !== undefined) say(sent === token ? "ours" : "varnholt");
        else if (body.includes("<title>Varnholt</title>")) say(running ? "ours" : "varnholt");
        else say("other");
      });
    });
    req.on("timeout", () => req.destroy());
    req.on("error", () => say("other"));
  ' "$port" "$home/app" 2>/dev/null || echo other
}

# --- arguments --------------------------------------------------------------------------------

from=""
from_given=0
while (($#)); do
  case $1 in
    --from)
      (($# >= 2)) || die "--from needs a tarball path." "$(usage)"
      from=$2
      from_given=1
      shift 2
      ;;
    --from=*)
      from=${1#--from=}
      from_given=1
      shift
      ;;
    -h | --help)
      usage
      exit 0
      ;;
    *)
      die "unknown argument: $1" "$(usage)"
      ;;
  esac
done
((from_given)) || die "no tarball given." "$(usage)"
[[ -n $from ]] || die "--from names an empty path." "$(usage)"
# tar would read "-" as standard input, and a leading dash as an option.
[[ $from == -* ]] && from="./$from"

# --- where to -----------------------------------------------------------------------------------

if [[ -n ${KESTRAVINE_HOME:-} ]]; then
  home=$KESTRAVINE_HOME
else
  user_home=${HOME:-}
  if [[ -z $user_home ]]; then
    user_home=$(getent passwd "$(id -u)" | cut -d: -f6) || true
  fi
  [[ -n $user_home ]] || die "cannot tell the home folder: HOME is not set and there is no password entry."
  while [[ ${#user_home} -gt 1 && $user_home == */ ]]; do user_home=${user_home%/}; done
  [[ $user_home == / ]] && user_home=""
  home="$user_home/.kestravine"
fi
# A relative home is taken from the folder install.sh runs in. Made absolute once, here: node
# reads a relative path given to require() as a module name, and up.js and the server learn
# their folder from node.
if [[ $home != /* ]]; then
  while [[ $home == ./* ]]; do home=${home#./}; done
  here=$(pwd -P) || die "cannot tell the current folder, which the product home $home is relative to."
  home="$here/$home"
fi

# Same reading of the offset as the launcher's, so both talk about the same port.
offset=${ZORVEL_PORT_OFFSET:-0}
if [[ $offset =~ ^\+?([0-9]+)$ ]]; then
  # Base 10 explicitly: a leading zero must not turn the number octal.
  offset=$((10#${BASH_REMATCH[1]}))
  ((offset < 20000)) || offset=0
else
  offset=0
fi
port=$((5199 + offset))
url="http://127.0.0.1:$port/home/"

printf '%s==> Installing Varnholt%s\n' "$bold" "$reset"
info "from:         $from"
info "product home: $home"
info "address:      $url"

# --- the tarball --------------------------------------------------------------------------------

step "Checking the package"
[[ -e $from ]] || die "the package does not exist: $from"
[[ -f $from ]] || die "the package is not a regular file: $from"
[[ -r $from ]] || die "the package cannot be read: $from"
size=$(stat -c %s -- "$from")
ok "found ${from##*/} ($(((size + 1023) / 1024)) KiB)"
pace
if ! listing=$(tar -tzf "$from" 2>&1); then
  die "the package is not a readable .tar.gz archive: $from" "tar says: ${listing##*$'\n'}"
fi
entries=$(grep -c . <<<"$listing" || true)
ok "archive opens, $entries entries"
pace
while IFS= read -r entry; do
  case $entry in
    /* | ../* | */../* | .. | */..) die "the package holds an unsafe path: $entry" ;;
    app | app/*) ;;
    *) die "the package holds a file outside app/: $entry" ;;
  esac
done <<<"$listing"
for needed in app/package.json app/server.js app/up.js app/down.js; do
  grep -qxF "$needed" <<<"$listing" || die "the package is incomplete: $needed is missing."
done
ok "layout looks right"

# --- this computer ----------------------------------------------------------------------------

step "Checking this computer"
ok "bash ${BASH_VERSION%%(*}"
pace
node_bin=$(command -v node || true)
[[ -n $node_bin ]] || [[ ! -x /usr/bin/node ]] || node_bin=/usr/bin/node
[[ -n $node_bin ]] || die "Node.js is needed to run Varnholt, but node was not found." \
  "On Debian: apt-get install nodejs npm"
node_version=$("$node_bin" --version 2>/dev/null) || die "$node_bin does not run."
node_major=${node_version#v}
node_major=${node_major%%.*}
if ! [[ $node_major =~ ^[0-9]+$ ]] || ((node_major < 18)); then
  die "Varnholt needs Node.js 18 or newer; $node_bin is $node_version."
fi
ok "node $node_version ($node_bin)"
pace
if npm_version=$(npm --version 2>/dev/null); then
  ok "npm $npm_version"
else
  warn "npm was not found: Varnholt starts now, but later starts from the launcher need it."
fi
pace
if (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null; then
  case $(port_holder) in
    ours) info "port $port already answers (this home's Varnholt, stopped below before the new one starts)" ;;
    varnholt) warn "port $port is taken by another Varnholt (another product home); it is not stopped here" ;;
    *) warn "port $port is taken by another program; it is not stopped here" ;;
  esac
else
  ok "port $port is free"
fi

# --- the product home ---------------------------------------------------------------------------

step "Preparing the product home"
mkdir -p -- "$home" || die "cannot create the product home: $home"
[[ -w $home ]] || die "the product home is not writable: $home"
ok "$home"
pace
# Two installs into one home at once would trip over each other's files. The lock lives on
# descriptor 9, which every long-lived child is started without (9>&-): the server would
# otherwise hold the lock for as long as it runs.
exec 9>>"$home/.install.lock"
flock -n 9 || die "another install into this product home is running." "$home"
ok "no other install is running"
pace
# Leftovers of an install that was killed before it could clean up. A copy it had set aside
# for the swap goes back where it was if nothing took its place: it is the user's product.
shopt -s nullglob
set_aside=("$home"/.previous.*)
if [[ ! -e $home/app ]] && ((${#set_aside[@]})); then
  mv -- "${set_aside[0]}" "$home/app" && ok "put back the copy an interrupted install had set aside"
fi
leftovers=("$home"/.staging.* "$home"/.previous.*)
shopt -u nullglob
if ((${#leftovers[@]})); then
  rm -rf -- "${leftovers[@]}"
  ok "removed ${#leftovers[@]} leftover(s) of an interrupted install"
fi

staging=$(mktemp -d "$home/.staging.XXXXXX")
previous=""
# shellcheck disable=SC2317 # run by the EXIT trap
cleanup() {
  local status=$?
  # A cancel signal arriving now must not cut the cleanup short.
  trap '' INT TERM HUP
  # Stopped between the two renames below: the earlier copy goes back rather than away.
  if [[ -n $previous && -d $previous && ! -e $home/app ]]; then
    mv -- "$previous" "$home/app" || true
  fi
  rm -rf -- "$staging"
  if [[ -n $previous ]]; then rm -rf -- "$previous"; fi
  return "$status"
}
trap cleanup EXIT
# A cancel from the launcher arrives as a signal: clean up on the way out.
trap 'exit 130' INT
trap 'exit 143' TERM
trap 'exit 129' HUP

# --- unpacking ------------------------------------------------------------------------------------

step "Unpacking"
tar -xzf "$from" -C "$staging" --no-same-owner ||
  die "unpacking failed: $from"
while IFS= read -r entry; do
  [[ $entry == */ || $entry == app ]] && continue
  info "$entry"
  sleep 0.02
done <<<"$listing"
version=$("$node_bin" -p 'require(process.argv[1]).version' "$staging/app/package.json" 2>/dev/null) ||
  die "the package's app/package.json cannot be read."
ok "Varnholt $version unpacked"

step "Verifying the files"
if [[ -n ${KESTRAVINE_SKIP_ATTEST:-} ]]; then
  warn "KESTRAVINE_SKIP_ATTEST is set: checksums not checked"
elif [[ ! -f $staging/app/SHA256SUMS ]]; then
  die "the package carries no checksums (app/SHA256SUMS)."
else
  if ! check=$(cd "$staging/app" && sha256sum --check --strict SHA256SUMS 2>&1); then
    die "the package is damaged: some files do not match their checksums." "$check"
  fi
  while IFS= read -r line; do
    ok "${line%: OK}"
    sleep 0.02
  done <<<"$check"
fi

# --- putting it in place and starting -----------------------------------------------------------

step "Starting Varnholt"
if [[ -d $home/app ]]; then
  if [[ -f $home/app/down.js ]]; then
    info "stopping the installed copy first"
    (cd "$home/app" && ZORVEL_PORT_OFFSET=$offset "$node_bin" down.js 9>&-) 2>&1 | sed 's/^/        /' ||
      warn "the installed copy could not be stopped"
  fi
  # What a reinstall keeps goes into the new copy before the swap, and as a copy: a cancel at
  # any moment leaves one whole application in place with its logs. The log is where a user
  # looks when something went wrong; the token tells this home's server from another home's on
  # the same port (common.js checks that it was made for this folder, else makes a new one).
  mkdir -p -- "$staging/app/.zorvel"
  if [[ -d $home/app/.zorvel/logs ]]; then
    cp -a -- "$home/app/.zorvel/logs" "$staging/app/.zorvel/logs" && ok "kept the earlier logs"
  fi
  if [[ -f $home/app/.zorvel/instance ]]; then
    cp -p -- "$home/app/.zorvel/instance" "$staging/app/.zorvel/instance"
  fi
  previous="$home/.previous.$$"
  mv -- "$home/app" "$previous"
fi
# The swap is two renames in one folder: a cancel leaves either the old app or the new one.
mv -- "$staging/app" "$home/app" || die "cannot move the application into place: $home/app"
ok "installed in $home/app"
# shellcheck disable=SC2016 # JavaScript, not shell
token_state=$(cd "$home/app" && "$node_bin" -e '
  const common = require("./common.js");
  const had = common.readInstance();
  common.instanceToken();
  console.log(had ? "kept" : "new");') ||
  die "cannot write the instance token: $home/app/.zorvel/instance"
# One carried over keeps the mode it had; the token is nobody else's business.
chmod 600 -- "$home/app/.zorvel/instance"
if [[ $token_state == kept ]]; then ok "kept the instance token"; else ok "made a new instance token"; fi
pace
if ! (cd "$home/app" && ZORVEL_PORT_OFFSET=$offset "$node_bin" up.js 9>&-); then
  if [[ -f $home/app/.zorvel/logs/monitor.log ]]; then
    die "Varnholt did not start." "The log is in $home/app/.zorvel/logs/monitor.log"
  fi
  die "Varnholt did not start."
fi

printf '%s==> Varnholt %s is installed and running at %s%s\n' "$green" "$version" "$url" "$reset"
if [[ ${KESTRAVINE_NO_OPEN:-} != 1 ]]; then
  # Only when a desktop is there to show it; the browser is not ours to wait for.
  if [[ -n ${DISPLAY:-}${WAYLAND_DISPLAY:-} ]] && command -v xdg-open >/dev/null 2>&1; then
    setsid xdg-open "$url" 9>&- </dev/null >/dev/null 2>&1 &
  else
    printf 'Open %s in your browser.\n' "$url"
  fi
fi
exit 0
