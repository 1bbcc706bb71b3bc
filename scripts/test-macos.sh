#!/usr/bin/env bash
# Checks the macOS files that scripts/build-macos.sh made (they cannot run here): each holds
# arm64 and x86_64; the plug-in exports exactly the Linux plug-in's names (tests/check_exports.sh),
# needs no library but libSystem and leaves no symbol to any other; its install name and
# versions are the release's; the host emulator is universal and needs only libSystem; both ask
# for macOS 11 and their arm64 code is signed (ad hoc).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh scripts/packages-macos.txt
[ -f build-macos/libKelvane4.dylib ] || bash scripts/build-macos.sh
lib=build-macos/libKelvane4.dylib cli=build-macos/kelvane
version=$(sed -nE 's/^project\(Kelvane VERSION ([0-9]+)\.([0-9]+).*/\1.\2/p' CMakeLists.txt)
major=${version%%.*} minor=$((10#${version#*.}))
status=0
problem() { echo "$*"; status=1; }

for file in $lib $cli; do
  archs=$(llvm-lipo-14 -archs "$file" | tr ' ' '\n' | sort | xargs)
  [ "$archs" = "arm64 x86_64" ] || problem "$file: architectures '$archs', expected arm64 and x86_64"
  for arch in arm64 x86_64; do
    used=$(llvm-objdump-14 --macho --arch=$arch --private-headers "$file" |
      awk '/cmd LC_(LOAD|LOAD_WEAK|REEXPORT|LAZY_LOAD|LOAD_UPWARD)_DYLIB$/ {want = 1} want && $1 == "name" {print $2; want = 0}')
    [ "$used" = /usr/lib/libSystem.B.dylib ] || problem "$file ($arch) needs: $(echo $used)"
    foreign=$(llvm-nm-14 --arch=$arch -m -u "$file" | grep -v '(from libSystem)' || true)
    [ -z "$foreign" ] || problem "$file ($arch): undefined symbols not from libSystem:" "$foreign"
    minos=$(llvm-objdump-14 --macho --arch=$arch --private-headers "$file" | grep -A4 'cmd LC_BUILD_VERSION' | awk '$1 == "minos" {print $2}')
    [ "$minos" = 11.0 ] || problem "$file ($arch): minimum macOS '$minos', expected 11.0"
    # Apple silicon runs no unsigned code: ld64.lld signs arm64 files ad hoc.
    [ $arch = x86_64 ] || llvm-objdump-14 --macho --arch=$arch --private-headers "$file" | grep -q 'cmd LC_CODE_SIGNATURE' ||
      problem "$file ($arch): no code signature"
  done
done

for arch in arm64 x86_64; do
  headers=$(llvm-objdump-14 --macho --arch=$arch --private-headers $lib)
  id=$(grep -A5 'cmd LC_ID_DYLIB' <<<"$headers")
  grep -q "name @rpath/libKelvane4.dylib " <<<"$id" || problem "$arch: install name: $(grep name <<<"$id")"
  grep -q "current version $major.$minor.0" <<<"$id" || problem "$arch: $(grep 'current version' <<<"$id"), expected $major.$minor.0"
  grep -q "compatibility version $major.0.0" <<<"$id" || problem "$arch: $(grep 'compatibility' <<<"$id")"
  grep -A2 '^Mach header' <<<"$headers" | grep -q ' TWOLEVEL' || problem "$arch: not linked with two-level names"
  # The exports: the version script's names, as the Linux plug-in exports them when it is built.
  bash tests/check_exports.sh $lib src/Kelvane4.map include/kelvane/Kelvane4.h build/libKelvane4.so $arch || status=1
done

[ $status -eq 0 ] && echo "macOS OK: $lib, $(stat -c %s $lib) bytes ($(llvm-lipo-14 -archs $lib | xargs)), needs only /usr/lib/libSystem.B.dylib"
exit $status
