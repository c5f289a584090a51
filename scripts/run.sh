#!/usr/bin/env bash
# Sets the machine up, builds the launcher and runs it on the bundled demo product. The product
# home is demo-home/ inside the checkout, so the user's own ~/.kestravine stays untouched.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build build

export KESTRAVINE_HOME="$PWD/demo-home"
port=$((5199 + ${ZORVEL_PORT_OFFSET:-0}))
if [[ -n ${DISPLAY:-}${WAYLAND_DISPLAY:-} ]]; then
  build/bin/kestravine-launcher || true
elif [[ -t 0 && -t 1 ]]; then
  # No desktop: the launcher runs in this terminal (Return installs, q leaves).
  build/bin/kestravine-launcher || true
else
  # Neither a desktop nor a terminal (a script, CI): it installs by itself and writes plain lines.
  KESTRAVINE_LAUNCHER_AUTOSTART=1 build/bin/kestravine-launcher || true
fi
if [[ -d $KESTRAVINE_HOME/app ]]; then
  echo "Varnholt: http://127.0.0.1:$port/home/  (stop it: cd demo-home/app && npm run -s zorvel:down)"
fi
