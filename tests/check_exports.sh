#!/usr/bin/env bash
# Checks the plug-in's exports: exactly the names of the version script, unmangled, every function
# declared in the public header among them. The Linux plug-in (nm): each name in the script's
# version node, no function beyond the header's. The Windows DLL (objdump): only Windows system
# DLLs needed (the C++, GCC and thread runtimes are linked in) and, when the Linux plug-in is
# given and built, the names it exports. The macOS dylib (llvm-nm, one architecture of the
# universal file): the same, with Mach-O's leading underscore taken off.
#   check_exports.sh LIB MAP HEADER [LINUX_LIB [ARCH]]
set -euo pipefail
lib=$1 map=$2 header=$3 linux=${4:-} arch=${5:-}
status=0
problem() { echo "$*"; status=1; }
script=$(perl -0pe 's#/\*.*?\*/##gs' "$map")
node=$(echo "$script" | grep -oE '^[A-Za-z_][A-Za-z0-9_]* *\{' | head -1 | tr -d ' {')
expected=$(echo "$script" | tr ' ;{' '\n\n\n' | grep -E '^[A-Za-z_][A-Za-z0-9_]*$' | grep -vxE "global|local|$node" | sort -u)
declared=$(grep -oE '^KV_API float [A-Za-z_0-9]+\(' "$header" | sed -E 's/^KV_API float //; s/\($//' | sort -u)
linuxNames() { nm -D --defined-only "$1" | awk '$2 != "A" {print $3}' | sed 's/@.*//' | sort -u; }
sameAsLinux() {
  if [ -n "$linux" ] && [ -f "$linux" ]; then
    [ "$(linuxNames "$linux")" = "$actual" ] || problem "exports differ from the Linux plug-in's:" "$(diff <(linuxNames "$linux") <(echo "$actual"))"
  fi
}
if [[ $lib == *.dylib ]]; then
  nm=llvm-nm-14
  command -v $nm >/dev/null || nm=nm  # a Mac's own
  symbols=$($nm --arch="${arch:-all}" -g --defined-only "$lib" | awk 'NF == 3 {print $3}' | sort -u)
  actual=$(echo "$symbols" | sed 's/^_//' | sort -u)
  ! grep -qv '^_' <<<"$symbols" || problem "names without Mach-O's underscore are exported"
  ! grep -q '^__Z' <<<"$symbols" || problem "mangled names are exported"
  sameAsLinux
elif [[ $lib == *.dll ]]; then
  objdump=x86_64-w64-mingw32-objdump
  needed=$($objdump -p "$lib" | sed -n 's/^\tDLL Name: //p' | tr 'A-Z' 'a-z' | sort -u)
  foreign=$(echo "$needed" | grep -vxE '(kernel32|user32|msvcrt|ole32|shell32|advapi32|api-ms-win-[a-z0-9-]+)\.dll' || true)
  [ -z "$foreign" ] || problem "needs DLLs that are not part of Windows: $foreign"
  actual=$($objdump -p "$lib" | sed -n '/\[Ordinal\/Name Pointer\] Table/,/^$/p' | sed -nE 's/^\s*\[ *[0-9]+\] +([A-Za-z_0-9]+)$/\1/p' | sort -u)
  sameAsLinux
else
  symbols=$(nm -D --defined-only "$lib" | awk '$2 != "A" {print $3}')
  actual=$(linuxNames "$lib")
  unversioned=$(echo "$symbols" | grep -v "@@$node\$" || true)
  [ -n "$node" ] && [ -z "$unversioned" ] || problem "symbols outside the version node '$node': $unversioned"
  undeclared=$(comm -13 <(echo "$declared") <(nm -D --defined-only "$lib" | awk '$2 == "T" {print $3}' | sed 's/@.*//' | sort -u))
  [ -z "$undeclared" ] || problem "exported but not declared in the header: $undeclared"
  ! grep -q '^_Z' <<<"$symbols" || problem "mangled names are exported"
fi
[ "$expected" = "$actual" ] || problem "exports differ from the version script:" "$(diff <(echo "$expected") <(echo "$actual"))"
missing=$(comm -23 <(echo "$declared") <(echo "$actual"))
[ -z "$missing" ] || problem "declared in the header but not exported: $missing"
compared=""
[ -n "$linux" ] && [ -f "$linux" ] && compared=", the Linux plug-in's"
[ $status -eq 0 ] && echo "exports OK${arch:+ ($arch)}: $(echo "$actual" | wc -l) names${compared}${needed:+; needs $(echo $needed)}"
exit $status
