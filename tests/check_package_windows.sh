#!/usr/bin/env bash
# The Windows release files as a user gets them. In the zip, Kelvane4.dll and kelvane.exe carry
# no debug information and name their .debug files, which the debug zip holds; the stripped DLL
# exports what the plug-in must, and the unzipped kelvane.exe finds it and calls it under Wine.
# The Windows wheel carries that same DLL beside the module.
#   tests/check_package_windows.sh WINE BUILD_WINDOWS_DIR
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
wine=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "$*"; exit 1; }
bash "$root/scripts/package.sh" "$2" "$work/dist" > "$work/files"
zip=$(grep "windows-x86_64.zip$" "$work/files")
wheel=$(grep "py3-none-win_amd64.whl$" "$work/files")
cd "$work"
python3 -m zipfile -e "$zip" . && python3 -m zipfile -e "${zip%.zip}-debug.zip" .
top=$work/$(basename "$zip" .zip)
version=$(basename "$zip" | cut -d- -f2)
for f in Kelvane4.dll kelvane.exe; do
  sections=$(x86_64-w64-mingw32-objdump -h "$top/$f")
  ! grep -q '\.debug_info' <<<"$sections" || fail "$f keeps its debug information"
  grep -q '\.gnu_debuglink' <<<"$sections" || fail "$f names no debug file"
  x86_64-w64-mingw32-objdump -h "$top-debug/$f.debug" | grep -q '\.debug_info' || fail "$f.debug holds none"
done
bash "$root/tests/check_exports.sh" "$top/Kelvane4.dll" "$root/src/Kelvane4.map" "$root/include/kelvane/Kelvane4.h"
got=$("$wine" "$top/kelvane.exe" call Version | tr -d '\r')
[ "$got" = "Version -> $version" ] || fail "the unzipped kelvane.exe gives \"$got\""
python3 - "$wheel" "$top/Kelvane4.dll" <<'PY' || fail "the Windows wheel does not carry the zip's DLL"
import sys, zipfile
names = zipfile.ZipFile(sys.argv[1]).namelist()
assert {"kelvane/__init__.py", "kelvane/codes.def", "kelvane/_version.py"} <= set(names), names
assert zipfile.ZipFile(sys.argv[1]).read("kelvane/lib/Kelvane4.dll") == open(sys.argv[2], "rb").read()
PY
echo "Windows files OK: $(cd "$top" && ls -l Kelvane4.dll kelvane.exe | awk '{printf "%s %s bytes; ", $9, $5}')$(basename "$wheel")"
