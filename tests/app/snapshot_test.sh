#!/usr/bin/env bash
# Snapshot mode of the real launcher, without a display: a PNG of the whole 440x320 content
# (times the pixel ratio) about 4 s after start, then exit 0; a path in a missing directory
# writes nothing and still ends; a disk that fills up while it writes leaves the old file whole.
set -euo pipefail
launcher=$1
scratch=$2
rm -rf "$scratch"
mkdir -p "$scratch/home"
export QT_QPA_PLATFORM=offscreen KESTRAVINE_HOME="$scratch/home"

now() { date +%s%N; }

start=$(now)
KESTRAVINE_LAUNCHER_SHOT="$scratch/shot.png" timeout 60 "$launcher"
elapsed_ms=$((($(now) - start) / 1000000))
[[ -s $scratch/shot.png ]] || { echo "no snapshot written"; exit 1; }
# Width and height: big-endian 32-bit numbers at bytes 16 to 23 of a PNG.
read -r -a size < <(od -An -tu1 -j16 -N8 "$scratch/shot.png")
width=$(((size[0] << 24) | (size[1] << 16) | (size[2] << 8) | size[3]))
height=$(((size[4] << 24) | (size[5] << 16) | (size[6] << 8) | size[7]))
echo "snapshot ${width}x${height} after ${elapsed_ms} ms"
((width % 440 == 0 && height % 320 == 0 && width / 440 == height / 320)) ||
  { echo "unexpected size"; exit 1; }
((elapsed_ms >= 4000)) || { echo "ended before 4 s"; exit 1; }

KESTRAVINE_LAUNCHER_SHOT="$scratch/missing/shot.png" timeout 60 "$launcher"
[[ ! -e $scratch/missing ]] || { echo "wrote into a missing directory"; exit 1; }
echo "missing directory: nothing written, exit 0"

# A full disk, as a file size limit: writing fails part way (EFBIG rather than a signal).
printf 'earlier picture' >"$scratch/old.png"
(
  trap '' XFSZ
  ulimit -f 1
  KESTRAVINE_LAUNCHER_SHOT="$scratch/old.png" timeout 60 "$launcher"
) || { echo "a failed write made the launcher fail"; exit 1; }
[[ $(cat "$scratch/old.png") == 'earlier picture' ]] || { echo "the old file was damaged"; exit 1; }
echo "full disk: the old file stays whole, exit 0"
