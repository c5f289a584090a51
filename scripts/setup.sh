#!/usr/bin/env bash
# Installs every Debian package the launcher needs to build, test and run.
# Idempotent: packages already present are skipped without touching apt.
set -euo pipefail

packages=(
  g++ clang libclang-rt-14-dev lld cmake ninja-build pkg-config dpkg-dev
  libicu-dev nlohmann-json3-dev python3-fonttools googletest libgtest-dev libgmock-dev libcpp-httplib-dev
  qt6-base-dev libgl-dev libfontconfig-dev
  curl procps bash iproute2
  xvfb xauth x11-apps x11-utils imagemagick openbox xdotool
  fonts-noto-cjk libqt6svg6
  zenity yad time libxcb1-dev strace
  desktop-file-utils lintian appstream
  # The Wayland platform, which the launcher runs on natively, and a compositor that runs
  # without a screen, for the end-to-end test on Wayland.
  qt6-wayland weston
  # What a screen reader gets: the accessibility bus and its Python client, in a session bus.
  dbus dbus-daemon at-spi2-core python3-pyatspi
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done

# The demo product's services are started with "npm run" in a login shell; any node/npm pair on
# the system path will do (Debian's, or one already installed from elsewhere).
command -v node >/dev/null 2>&1 || missing+=(nodejs)
command -v npm >/dev/null 2>&1 || missing+=(npm)

if ((${#missing[@]})); then
  sudo=""
  [ "$(id -u)" -eq 0 ] || sudo="sudo"
  export DEBIAN_FRONTEND=noninteractive
  $sudo apt-get update -qq
  $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
