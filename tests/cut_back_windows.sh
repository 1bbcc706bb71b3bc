#!/usr/bin/env bash
# Writes stopped part-way under Wine. With the file size limit below what they write (and
# SIGXFSZ ignored, so that the write fails instead), an append is cut back to the file's old
# end and a rewrite (a PSD colour swap) leaves the old file whole, with nothing left beside them;
# with room, both go through.
#   tests/cut_back_windows.sh WINE KELVANE_EXE
set -euo pipefail
wine=$1 exe=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
fail() { echo "$*"; exit 1; }
python3 - <<'PY'
vertices = "v 0.125 0.25 0.5\n" * 20000  # 340 000 bytes
open("part.obj", "w").write(vertices + "g p\nf 1 2 3\n")
open("all.obj", "w").write("v 1 2 3\ng first\nf 1 1 1 \n")
# A 300 x 300 RGB image, black (the header's numbers as the library reads them: low byte first).
head = b"8BPS\x01\x00" + bytes(6) + (3).to_bytes(2, "little") + (300).to_bytes(4, "little") * 2
head += (8).to_bytes(2, "little") + (3).to_bytes(2, "little") + bytes(4 + 4 + 4 + 2)
open("image.psd", "wb").write(head + bytes(3 * 300 * 300))
PY
cp all.obj all.before && cp image.psd image.before
limited() { (trap '' XFSZ && ulimit -f 200 && "$wine" "$exe" call "$@"); }  # 100 KiB
limited AppendOBJ --text part.obj --number 0 --mem1 all.obj --expect -2
limited SwapColorsPSD --text image.psd --number 255 --expect -5
cmp -s all.obj all.before || fail "the failed append was not cut back: $(wc -c <all.obj) bytes"
cmp -s image.psd image.before || fail "the failed rewrite changed the image"
[ "$(echo *)" = "all.before all.obj image.before image.psd part.obj" ] || fail "left behind: $(echo *)"
"$wine" "$exe" call AppendOBJ --text part.obj --number 0 --mem1 all.obj --expect 20000 >/dev/null
"$wine" "$exe" call SwapColorsPSD --text image.psd --number 255 --expect 0 >/dev/null
[ "$(wc -c <all.obj)" -gt 340000 ] && [ "$(wc -c <image.psd)" = $((40 + 270000 + 1)) ] ||
  fail "with room, the writes did not go through"
echo "append cut back and rewrite kept whole under a file size limit"
