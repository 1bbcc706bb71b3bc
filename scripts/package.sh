#!/usr/bin/env bash
# Writes the release archives, laid out as a user unpacks them (bin/, lib/, include/, the CMake
# package and pkg-config file, README.md, LICENSE, CHANGELOG.md):
#   dist/kelvane-<version>-linux-x86_64.tar.gz    from the release build (built first)
#   dist/kelvane-<version>-windows-x86_64.zip     only when build-windows/Kelvane4.dll exists
#   dist/kelvane-<version>-macos-universal.tar.gz only when build-macos/libKelvane4.dylib exists
# The version is the project's, read from the build's CMake cache.
#   scripts/package.sh [BUILD_DIR [OUT_DIR]]   an existing build folder is packed as it is
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
out=$(realpath -m "${2:-$root/dist}")
if [ -n "${1:-}" ]; then
  build=$(realpath "$1")
else
  build=$root/build
  (cd "$root" && bash scripts/deps.sh && cmake --preset release >/dev/null && cmake --build --preset release >/dev/null)
fi
version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build/CMakeCache.txt")
stage=$(mktemp -d)
trap 'rm -rf "$stage"' EXIT
mkdir -p "$out"

name=kelvane-$version-linux-x86_64
cmake --install "$build" --prefix "$stage/$name" --strip >/dev/null
cp "$root/README.md" "$root/LICENSE" "$root/CHANGELOG.md" "$stage/$name/"
tar -C "$stage" -czf "$out/$name.tar.gz" "$name"
echo "$out/$name.tar.gz"

if [ -f "$root/build-windows/Kelvane4.dll" ]; then
  win=kelvane-$version-windows-x86_64
  mkdir -p "$stage/$win/include/kelvane"
  cp "$root"/build-windows/{Kelvane4.dll,kelvane.exe} "$stage/$win/" 2>/dev/null || cp "$root/build-windows/Kelvane4.dll" "$stage/$win/"
  cp "$root/include/kelvane/Kelvane4.h" "$stage/$win/include/kelvane/"
  cp "$root/README.md" "$root/LICENSE" "$root/CHANGELOG.md" "$stage/$win/"
  (cd "$stage" && cmake -E tar cf "$out/$win.zip" --format=zip "$win")
  echo "$out/$win.zip"
fi

if [ -f "$root/build-macos/libKelvane4.dylib" ]; then
  mac=kelvane-$version-macos-universal
  mkdir -p "$stage/$mac/lib" "$stage/$mac/bin" "$stage/$mac/include/kelvane"
  cp "$root/build-macos/libKelvane4.dylib" "$stage/$mac/lib/"
  [ ! -f "$root/build-macos/kelvane" ] || cp "$root/build-macos/kelvane" "$stage/$mac/bin/"
  cp "$root/include/kelvane/Kelvane4.h" "$stage/$mac/include/kelvane/"
  cp "$root/README.md" "$root/LICENSE" "$root/CHANGELOG.md" "$stage/$mac/"
  tar -C "$stage" -czf "$out/$mac.tar.gz" "$mac"
  echo "$out/$mac.tar.gz"
fi
