#!/usr/bin/env bash
# Writes the release files, laid out as a user installs or unpacks them:
#   dist/kelvane-<version>-linux-x86_64.tar.gz    bin/, lib/, include/, the CMake package and
#                                                 pkg-config file, README.md, LICENSE, CHANGELOG.md
#   dist/kelvane_<version>_amd64.deb              the same install tree under /usr, for dpkg/apt
#   dist/kelvane-<version>-py3-none-<tag>.whl     the Python module with the plug-in inside, one
#                                                 per platform built (Linux; Windows, macOS when built)
#   dist/kelvane-<version>-windows-x86_64.zip     stripped Kelvane4.dll and kelvane.exe, when
#                                                 build-windows/Kelvane4.dll exists; their debug
#                                                 information in ...-windows-x86_64-debug.zip
#   dist/kelvane-<version>-macos-universal.tar.gz the dylib, kelvane, the header, README, LICENSE,
#                                                 CHANGELOG, when build-macos/libKelvane4.dylib exists
# The version is the project's, read from the build's CMake cache.
#   scripts/package.sh [BUILD_DIR [OUT_DIR]]   an existing build folder is packed as it is;
#                                              a Windows build folder gives only its own files
# With KELVANE_PACKAGE_LINUX_ONLY=1, a Linux build folder gives only its own files too.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
out=$(realpath -m "${2:-$root/dist}")
windows=$root/build-windows
macos=$root/build-macos
[ -z "${KELVANE_PACKAGE_LINUX_ONLY:-}" ] || windows= macos=
if [ -f "${1:-}/Kelvane4.dll" ]; then
  windows=$(realpath "$1") build=
elif [ -n "${1:-}" ]; then
  build=$(realpath "$1")
else
  build=$root/build
  (cd "$root" && bash scripts/deps.sh && cmake --preset release >/dev/null && cmake --build --preset release >/dev/null)
fi
version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "${build:-$windows}/CMakeCache.txt")
stage=$(mktemp -d)
trap 'rm -rf "$stage"' EXIT
mkdir -p "$out"

# A wheel of the Python module with a plug-in inside (kelvane/lib/), where Plugin() looks first:
#   pack_wheel PLATFORM_TAG PLUGIN_FILE NAME_INSIDE BUILD_DIR
# Packed by Debian's python3-wheel; the module's version file comes from the build.
pack_wheel() {
  local w=$stage/wheel-$1
  mkdir -p "$w/kelvane/lib" "$w/kelvane-$version.dist-info"
  (cd "$root/python" && find kelvane -name '*.py' -exec cp --parents {} "$w" \;)
  cp "$root/include/kelvane/codes.def" "$4/generated/python/_version.py" "$w/kelvane/"
  cp "$2" "$w/kelvane/lib/$3"
  cp "$root/LICENSE" "$w/kelvane-$version.dist-info/"
  printf '%s\n' "Metadata-Version: 2.1" "Name: kelvane" "Version: $version" \
    "Summary: Loads the Kelvane4 plug-in and calls its exports as the 3D sculpting host does" \
    "License: MIT" "Requires-Python: >=3.9" > "$w/kelvane-$version.dist-info/METADATA"
  printf '%s\n' "Wheel-Version: 1.0" "Generator: kelvane scripts/package.sh" "Root-Is-Purelib: false" \
    "Tag: py3-none-$1" > "$w/kelvane-$version.dist-info/WHEEL"
  /usr/bin/python3 -m wheel pack "$w" -d "$out" >/dev/null
  echo "$out/kelvane-$version-py3-none-$1.whl"
}

if [ -n "$build" ]; then
  name=kelvane-$version-linux-x86_64
  cmake --install "$build" --prefix "$stage/$name" --strip >/dev/null
  cp "$root/README.md" "$root/LICENSE" "$root/CHANGELOG.md" "$stage/$name/"
  tar -C "$stage" -czf "$out/$name.tar.gz" "$name"
  echo "$out/$name.tar.gz"
  # The wheel's platform: the oldest glibc that has every symbol version the plug-in asks for.
  plugin=$(realpath "$stage/$name/lib/libKelvane4.so")
  glibc=$(objdump -T "$plugin" | grep -o 'GLIBC_2\.[0-9]*' | sort -t. -k2 -n | tail -n 1)
  pack_wheel "manylinux_2_${glibc#GLIBC_2.}_x86_64" "$plugin" libKelvane4.so "$build"
fi

# The Debian package: the install tree under /usr, the manual page and the Debian files.
if [ -n "$build" ]; then
  deb=$stage/deb
  DESTDIR=$deb cmake --install "$build" --prefix /usr --strip >/dev/null
  doc=$deb/usr/share/doc/kelvane
  mkdir -p "$doc" "$deb/DEBIAN"
  [ ! -f "$deb/usr/share/man/man1/kelvane.1" ] || gzip -9n "$deb/usr/share/man/man1/kelvane.1"
  { printf '%s\n' "Format: https://www.debian.org/doc/packaging-manuals/copyright-format/1.0/" \
      "Upstream-Name: kelvane" "" "Files: *" "Copyright: $(sed -n 's/^Copyright (c) //p' "$root/LICENSE")" \
      "License: Expat"
    sed -n '/^Permission/,$p' "$root/LICENSE" | sed 's/^$/./; s/^/ /'; } > "$doc/copyright"
  printf '%s\n' "kelvane ($version) unstable; urgency=medium" "" "  * Release $version." "" \
    " -- The Kelvane developers <kelvane@kelvane.invalid>  $(date -R -d "@${SOURCE_DATE_EPOCH:-$(date +%s)}")" \
    | gzip -9n > "$doc/changelog.gz"
  # The plug-in is a public library: its SONAME for dpkg-shlibdeps, and ldconfig on install.
  echo "libKelvane4 ${version%%.*} kelvane (>= $version)" > "$deb/DEBIAN/shlibs"
  echo "activate-noawait ldconfig" > "$deb/DEBIAN/triggers"
  mkdir -p "$stage/shlibdeps/debian" && touch "$stage/shlibdeps/debian/control"
  depends=$(cd "$stage/shlibdeps" && dpkg-shlibdeps -O "$deb"/usr/bin/kelvane "$deb"/usr/lib/libKelvane4.so.* \
    2>/dev/null | sed -n 's/^shlibs:Depends=//p')
  find "$deb/usr" -name '*.so.*' -type f -exec chmod 644 {} +
  printf '%s\n' "Package: kelvane" "Version: $version" "Architecture: amd64" "Section: graphics" \
    "Priority: optional" "Maintainer: The Kelvane developers <kelvane@kelvane.invalid>" \
    "Installed-Size: $(du -sk --exclude=DEBIAN "$deb" | cut -f1)" "Depends: $depends" \
    "Recommends: python3 (>= 3.9)" \
    "Description: plug-in library doing the file work of a 3D sculpting host" \
    " The Kelvane4 plug-in combines part meshes into one OBJ for posing and splits" \
    " the posed mesh back into its parts, converts the host's Vyx meshes, and works" \
    " on BMP and PSD images, TPose project files and folders. The package holds the" \
    " plug-in, its C header, CMake package and pkg-config file, the host emulator" \
    " kelvane and the Python module kelvane." \
    > "$deb/DEBIAN/control"
  (cd "$deb" && find usr -type f -exec md5sum {} + | sort -k2 > DEBIAN/md5sums)
  chmod -R u=rwX,go=rX "$deb"
  dpkg-deb --root-owner-group -Zxz --build "$deb" "$out/kelvane_${version}_amd64.deb" >/dev/null
  echo "$out/kelvane_${version}_amd64.deb"
fi

# Windows: the DLL and kelvane.exe stripped, their debug information in a zip of its own (each
# stripped file names its .debug file), and the Windows wheel.
if [ -f "$windows/Kelvane4.dll" ]; then
  win=kelvane-$version-windows-x86_64
  mkdir -p "$stage/$win/include/kelvane" "$stage/$win-debug"
  for f in Kelvane4.dll kelvane.exe; do
    [ -f "$windows/$f" ] || continue
    x86_64-w64-mingw32-objcopy --only-keep-debug "$windows/$f" "$stage/$win-debug/$f.debug"
    x86_64-w64-mingw32-strip --strip-all -o "$stage/$win/$f" "$windows/$f"
    (cd "$stage/$win-debug" && x86_64-w64-mingw32-objcopy --add-gnu-debuglink="$f.debug" "$stage/$win/$f")
  done
  cp "$root/include/kelvane/Kelvane4.h" "$stage/$win/include/kelvane/"
  cp "$root/README.md" "$root/LICENSE" "$root/CHANGELOG.md" "$stage/$win/"
  (cd "$stage" && cmake -E tar cf "$out/$win.zip" --format=zip "$win" &&
    cmake -E tar cf "$out/$win-debug.zip" --format=zip "$win-debug")
  echo "$out/$win.zip"
  echo "$out/$win-debug.zip"
  pack_wheel win_amd64 "$stage/$win/Kelvane4.dll" Kelvane4.dll "$windows"
fi

# macOS: the wheel, when a macOS build exists.
if [ -n "$build" ] && [ -f "$macos/libKelvane4.dylib" ]; then
  pack_wheel macosx_11_0_universal2 "$macos/libKelvane4.dylib" libKelvane4.dylib "$build"
fi

if [ -n "$build" ] && [ -f "$macos/libKelvane4.dylib" ]; then
  mac=kelvane-$version-macos-universal
  mkdir -p "$stage/$mac/lib" "$stage/$mac/bin" "$stage/$mac/include/kelvane"
  cp "$macos/libKelvane4.dylib" "$stage/$mac/lib/"
  [ ! -f "$macos/kelvane" ] || cp "$macos/kelvane" "$stage/$mac/bin/"
  cp "$root/include/kelvane/Kelvane4.h" "$stage/$mac/include/kelvane/"
  cp "$root/README.md" "$root/LICENSE" "$root/CHANGELOG.md" "$stage/$mac/"
  tar -C "$stage" -czf "$out/$mac.tar.gz" "$mac"
  echo "$out/$mac.tar.gz"
fi
