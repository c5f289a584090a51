#!/usr/bin/env bash
# Builds the Debian package and checks it with Debian's own checker (lintian: no error, no
# warning, and none of its hardening notes); unpacks it into a scratch root (no installation on
# this machine) and checks its layout, its desktop entry, its AppStream metainfo, its changelog
# and its declared dependencies; then runs the unpacked launcher, which must give its version
# and, in snapshot mode, find its resources beside itself.
set -euo pipefail
build=$1
scratch=$2
rm -rf "$scratch"
mkdir -p "$scratch/root"
cpack -G DEB -B "$scratch" --config "$build/CPackConfig.cmake" >/dev/null
deb=$(ls "$scratch"/kestravine-launcher_*.deb)
echo "package: ${deb##*/}"
# Info-level tags are shown too, so that the hardening notes can be caught.
lintian --display-info "$deb" >"$scratch/lintian" 2>&1 || true
grep -v '^running with root privileges' "$scratch/lintian" | sed 's/^/lintian: /'
if grep -qE '^[EW]: |hardening-no-' "$scratch/lintian"; then
  echo "lintian found errors, warnings or missing hardening"
  exit 1
fi
dpkg-deb -x "$deb" "$scratch/root"
root=$scratch/root/usr
doc=share/doc/kestravine-launcher
for f in bin/kestravine-launcher share/kestravine/install.sh share/kestravine/service-env.sh \
  share/applications/kestravine-launcher.desktop \
  share/icons/hicolor/scalable/apps/kestravine-launcher.svg \
  share/metainfo/kestravine-launcher.metainfo.xml share/man/man1/kestravine-launcher.1.gz \
  $doc/copyright $doc/changelog.gz; do
  [[ -e $root/$f ]] || { echo "missing $f"; exit 1; }
done
ls "$root"/share/kestravine/kestravine-*.tar.gz >/dev/null
desktop-file-validate "$root/share/applications/kestravine-launcher.desktop"
appstreamcli validate --no-net --pedantic "$root/share/metainfo/kestravine-launcher.metainfo.xml"
version=$(dpkg-deb -f "$deb" Version)
changelog_version=$(zcat "$root/$doc/changelog.gz" | dpkg-parsechangelog -l - -S Version)
[[ $changelog_version == "$version" ]] ||
  { echo "the changelog is at $changelog_version, the package at $version"; exit 1; }
grep -qF "<release version=\"$version\"" "$root/share/metainfo/kestravine-launcher.metainfo.xml" ||
  { echo "the metainfo has no release $version"; exit 1; }
zcat "$root/share/man/man1/kestravine-launcher.1.gz" | grep "^\.TH .*\"kestravine-launcher $version\"" >/dev/null ||
  { echo "the manual page is not for version $version"; exit 1; }
[[ $(env -i "$root/bin/kestravine-launcher" --version) == "kestravine-launcher $version" ]] ||
  { echo "the installed launcher does not give the version $version"; exit 1; }
depends=$(dpkg-deb -f "$deb" Depends)
echo "depends: $depends"
for needed in libqt6widgets6 libicu curl procps nodejs qt6-wayland; do
  [[ $depends == *"$needed"* ]] || { echo "Depends lacks $needed"; exit 1; }
done
mkdir -p "$scratch/home"
QT_QPA_PLATFORM=offscreen KESTRAVINE_HOME="$scratch/home" \
  KESTRAVINE_LAUNCHER_SHOT="$scratch/shot.png" timeout 60 "$root/bin/kestravine-launcher"
[[ -s $scratch/shot.png ]] || { echo "the installed launcher wrote no snapshot"; exit 1; }
echo "installed launcher ran and wrote its snapshot"
