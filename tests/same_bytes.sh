#!/usr/bin/env bash
# Same bytes on Linux and Windows: runs every example script with the Linux `kelvane` and,
# under Wine, with kelvane.exe, each in an empty folder of its own, and compares the folders
# file by file and byte for byte. Exit status 77 (skipped) when the Linux build is missing.
#   tests/same_bytes.sh build/kelvane build-windows/kelvane.exe [WINE]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
linux=$(realpath "$1") windows=$(realpath "$2") wine=${3:-wine}
[ -x "$linux" ] || { echo "no Linux build at $1: skipped"; exit 77; }
work=$(mktemp -d)
[ -n "${KEEP:-}" ] || trap 'rm -rf "$work"' EXIT
# The images examples/images.kvs works on: a 24-bit BMP and PSDs of the plug-in's dialect.
python3 - "$work/images" <<'PY'
import os, struct, sys
d = sys.argv[1]; os.makedirs(d)
w, h = 64, 8
row = lambda r: bytes((r * 31 + c * 7 + ch * 101 + 5) & 255 for c in range(w) for ch in range(3)) + bytes((4 - w * 3 % 4) % 4)
pixels = b"".join(row(r) for r in range(h))
open(f"{d}/render.bmp", "wb").write(b"BM" + struct.pack("<IHHIIiiHHIIiiII", 54 + len(pixels), 0, 0, 54, 40, w, h, 1, 24, 0, len(pixels), 2835, 2835, 0, 0) + pixels)
for k, name in enumerate(["color", "decal", "base", "tile"]):
    n = 120
    planes = b"".join(bytes(255 if (ch == 0 and (i // n + i % n + k) % 5 == 0) else (i * (ch + 1) + 37 * k) & 255 for i in range(n * n)) for ch in range(3))
    open(f"{d}/{name}.psd", "wb").write(b"8BPS\x01\x00" + bytes(6) + struct.pack("<HIIHHIII", 3, n, n, 8, 3, 0, 0, 0) + struct.pack("<H", 0) + planes)
PY
status=0
for script in "$root"/examples/*.kvs; do
  name=$(basename "$script" .kvs)
  mkdir -p "$work/linux/$name" "$work/windows/$name"
  if [ "$name" = images ]; then cp "$work"/images/* "$work/linux/$name/"; cp "$work"/images/* "$work/windows/$name/"; fi
  # Wine reaches the build machine's files through drive Z:.
  (cd "$work/linux/$name" && MODEL="$root/examples/model" "$linux" run "$script" > ../$name.out 2>&1) || true
  (cd "$work/windows/$name" && MODEL="Z:$root/examples/model" "$wine" "$windows" run "Z:$script" > ../$name.out 2>&1) || true
  if ! diff "$work/linux/$name.out" <(tr -d '\r' < "$work/windows/$name.out" | sed 's#Z:/#/#g'); then
    echo "$name: the calls' results differ"
    status=1
  fi
  files=$(cd "$work/linux/$name" && find . -type f | wc -l)
  if ! diff -r "$work/linux/$name" "$work/windows/$name"; then
    echo "$name: the files differ"
    status=1
  else
    echo "$name: $files files, the same bytes"
  fi
done
exit $status
