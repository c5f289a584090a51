#!/usr/bin/env bash
# Builds the Debian package, unpacks it into a scratch root (no installation on this machine)
# and checks its layout, its desktop entry and its declared dependencies; then runs the unpacked
# launcher in snapshot mode, where it must find its resources beside itself.
set -euo pipefail
build=$1
scratch=$2
rm -rf "$scratch"
mkdir -p "$scratch/root"
cpack -G DEB -B "$scratch" --config "$build/CPackConfig.cmake" >/dev/null
deb=$(ls "$scratch"/kestravine-launcher_*.deb)
echo "package: ${deb##*/}"
dpkg-deb -x "$deb" "$scratch/root"
root=$scratch/root/usr
for f in bin/kestravine-launcher share/kestravine/install.sh share/kestravine/service-env.sh \
  share/applications/kestravine-launcher.desktop \
  share/icons/hicolor/scalable/apps/kestravine-launcher.svg; do
  [[ -e $root/$f ]] || { echo "missing $f"; exit 1; }
done
ls "$root"/share/kestravine/kestravine-*.tar.gz >/dev/null
desktop-file-validate "$root/share/applications/kestravine-launcher.desktop"
depends=$(dpkg-deb -f "$deb" Depends)
echo "depends: $depends"
for needed in libqt6widgets6 libicu curl procps nodejs; do
  [[ $depends == *"$needed"* ]] || { echo "Depends lacks $needed"; exit 1; }
done
mkdir -p "$scratch/home"
QT_QPA_PLATFORM=offscreen KESTRAVINE_HOME="$scratch/home" \
  KESTRAVINE_LAUNCHER_SHOT="$scratch/shot.png" timeout 60 "$root/bin/kestravine-launcher"
[[ -s $scratch/shot.png ]] || { echo "the installed launcher wrote no snapshot"; exit 1; }
echo "installed launcher ran and wrote its snapshot"
