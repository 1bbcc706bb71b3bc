#!/usr/bin/env bash
# Checks the Windows plug-in: it needs only Windows system DLLs (the C++, GCC and thread
# runtimes are linked in), and it exports exactly the names of the version script, unmangled,
# which are also exactly the names the Linux plug-in exports when one is given and built.
set -euo pipefail
dll=$1 map=$2 linux=${3:-}
objdump=x86_64-w64-mingw32-objdump

status=0
problem() { echo "$*"; status=1; }
needed=$($objdump -p "$dll" | sed -n 's/^\tDLL Name: //p' | tr 'A-Z' 'a-z' | sort -u)
foreign=$(echo "$needed" | grep -vxE 'kernel32\.dll|user32\.dll|msvcrt\.dll|ole32\.dll|shell32\.dll|advapi32\.dll|api-ms-win-[a-z0-9-]+\.dll' || true)
[ -z "$foreign" ] || problem "needs DLLs that are not part of Windows: $foreign"

script=$(perl -0pe 's#/\*.*?\*/##gs' "$map")
node=$(echo "$script" | grep -oE '^[A-Za-z_][A-Za-z0-9_]* *\{' | head -1 | tr -d ' {')
expected=$(echo "$script" | tr ' ;{' '\n\n\n' | grep -E '^[A-Za-z_][A-Za-z0-9_]*$' \
  | grep -vxE "global|local|$node" | sort -u)
exported=$($objdump -p "$dll" | sed -n '/\[Ordinal\/Name Pointer\] Table/,/^$/p' \
  | sed -nE 's/^\s*\[ *[0-9]+\] +([A-Za-z_0-9]+)$/\1/p' | sort -u)
[ "$expected" = "$exported" ] ||
  problem "DLL exports differ from the version script:" "$(diff <(echo "$expected") <(echo "$exported"))"
if [ -n "$linux" ] && [ -f "$linux" ]; then
  linuxNames=$(nm -D --defined-only "$linux" | awk '$2 != "A" {print $3}' | sed 's/@.*//' | sort -u)
  [ "$linuxNames" = "$exported" ] ||
    problem "DLL exports differ from the Linux plug-in's:" "$(diff <(echo "$linuxNames") <(echo "$exported"))"
fi
[ $status -eq 0 ] && echo "DLL OK: needs $(echo $needed), exports $(echo "$exported" | wc -l) names"
exit $status
