#!/usr/bin/env bash
# The Linux release files as a user gets them, written once and checked form by form (a test
# each). The archive, unpacked into an empty folder: its kelvane finds the plug-in from its own
# location and runs the posing round; the plug-in needs no C++ runtime of the host. The .deb: its
# fields and files, lintian without error, and unpacked into a throwaway root. Both trees serve a
# find_package project and a pkg-config build that link the plug-in and call Version. The wheel,
# installed into a fresh venv with no index: the module loads its own plug-in and runs a round
# that gives the same files as the archive's kelvane.
#   tests/check_package.sh files BUILD_DIR DIST     scripts/package.sh's Linux files, afresh in DIST
#   tests/check_package.sh archive|deb|wheel DIST   one form, from DIST
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
if [ "$1" = files ]; then
  rm -rf "$3"
  KELVANE_PACKAGE_LINUX_ONLY=1 bash "$root/scripts/package.sh" "$2" "$3"
  exit
fi
form=$1 dist=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
archive=$(echo "$dist"/kelvane-*-linux-x86_64.tar.gz)
deb=$(echo "$dist"/kelvane_*_amd64.deb)
wheel=$(echo "$dist"/kelvane-*-manylinux_*_x86_64.whl)
fail() { echo "$*"; exit 1; }
mkdir "$work/unpacked"
tar -C "$work/unpacked" -xzf "$archive"
top=$(echo "$work"/unpacked/*)
version=$(basename "$top" | cut -d- -f2)

# consumers PREFIX: programs built against the plug-in installed under PREFIX call Version.
consumers() {
  local c=$work/consumer
  rm -rf "$c" && mkdir "$c"
  printf '#include <stdio.h>\n#include <kelvane/Kelvane4.h>\nint main(void) { printf("%%g\\n", Version(0, 0, 0, 0)); return 0; }\n' \
    > "$c/main.c"
  printf 'cmake_minimum_required(VERSION 3.25)\nproject(consumer C)\nfind_package(Kelvane4 %s CONFIG REQUIRED)\n%s\n%s\n' \
    "$version" 'add_executable(consumer main.c)' 'target_link_libraries(consumer PRIVATE Kelvane4::Kelvane4)' > "$c/CMakeLists.txt"
  cmake -S "$c" -B "$c/build" -G Ninja -DCMAKE_PREFIX_PATH="$1" >/dev/null
  cmake --build "$c/build" >/dev/null
  cc "$c/main.c" $(PKG_CONFIG_PATH="$1/lib/pkgconfig" pkg-config --cflags --libs kelvane4) -o "$c/pc"
  for consumer in "$c/build/consumer" "env LD_LIBRARY_PATH=$1/lib $c/pc"; do
    got=$($consumer)
    [ "$got" = "$version" ] || fail "$consumer: Version gave $got, not $version"
  done
}

if [ "$form" = archive ]; then
  for f in bin/kelvane lib/libKelvane4.so lib/libKelvane4.so.4 include/kelvane/Kelvane4.h \
           lib/cmake/Kelvane4/Kelvane4Config.cmake lib/pkgconfig/kelvane4.pc README.md LICENSE CHANGELOG.md; do
    [ -e "$top/$f" ] || fail "the archive lacks $f"
  done
  [ "$("$top/bin/kelvane" --version)" = "kelvane $version" ] || { echo "kelvane --version is not $version"; exit 1; }
  objdump -p "$top/lib/libKelvane4.so.4" | grep -E 'NEEDED.*(libstdc\+\+|libgcc_s)' && { echo "the plug-in needs the C++ runtime"; exit 1; }
  bash "$root/scripts/posing_round.sh" "$top/bin/kelvane" | tail -n 1
  # The installed Python module loads the installed plug-in and explains its codes.
  (cd "$work" && PYTHONPATH="$top/lib/python3/dist-packages" KELVANE_PLUGIN="$top/lib/libKelvane4.so.4" python3 -c '
import kelvane
assert kelvane.meaning("SplitOBJ", -1) == "the input file cannot be opened", kelvane.meaning("SplitOBJ", -1)
assert kelvane.Plugin().call("Version")[0] > 0') || { echo "the installed Python module does not work"; exit 1; }
  consumers "$top"
  echo "archive OK: $(basename "$archive"): posing round, find_package and pkg-config consumers"
fi

if [ "$form" = deb ]; then
  info=$(dpkg-deb -I "$deb")
  for field in "Package: kelvane" "Version: $version" "Architecture: amd64" "Depends: libc6 (>= 2."; do
    grep -qF " $field" <<<"$info" || fail "the .deb's control lacks $field"
  done
  contents=$(dpkg-deb -c "$deb" | awk '{print $6}')
  for f in bin/kelvane lib/libKelvane4.so lib/libKelvane4.so.4 "lib/libKelvane4.so.$version" \
           include/kelvane/Kelvane4.h lib/cmake/Kelvane4/Kelvane4Config.cmake lib/pkgconfig/kelvane4.pc \
           lib/python3/dist-packages/kelvane/__init__.py lib/python3/dist-packages/kelvane/codes.def \
           share/man/man1/kelvane.1.gz share/doc/kelvane/copyright; do
    grep -qxF "./usr/$f" <<<"$contents" || fail "the .deb lacks /usr/$f"
  done
  lintian --fail-on error --tag-display-limit 0 "$deb" > "$work/lintian" 2>&1 || { cat "$work/lintian"; fail "lintian finds errors"; }
  dpkg -x "$deb" "$work/root"
  usr=$work/root/usr
  [ "$("$usr/bin/kelvane" call Version)" = "Version -> $version" ] || fail "the .deb's kelvane does not find its plug-in"
  grep -q "split.*back" <(zcat "$usr/share/man/man1/kelvane.1.gz") || fail "the manual page lacks the subcommands"
  consumers "$usr"
  echo "deb OK: $(basename "$deb"): lintian, kelvane, find_package and pkg-config consumers"
fi

if [ "$form" = wheel ]; then
  # The wheel, in a fresh venv, away from the source tree and with no plug-in named.
  /usr/bin/python3 -m venv "$work/venv"
  "$work/venv/bin/pip" install -q --no-index "$wheel"
  mkdir "$work/round" && cd "$work/round"
  py="env -u KELVANE_PLUGIN -u PYTHONPATH $work/venv/bin/python"
  $py -c '
import kelvane, pathlib, struct, sys
p = kelvane.Plugin()
assert pathlib.Path(p.path).parent == pathlib.Path(kelvane.__file__).parent / "lib", p.path
assert p.call("Version")[0] == struct.unpack("f", struct.pack("f", float(kelvane.__version__)))[0]
try:
    p.split_obj("missing.obj", ".")
    sys.exit("no error")
except kelvane.KelvaneError as e:
    assert e.meaning == "the input file cannot be opened", e' || fail "the installed wheel does not work"
  parts=$(ls "$root"/examples/model/*.obj)
  $py -m kelvane combine $parts --out combined.obj >/dev/null
  "$top/bin/kelvane" pose combined.obj posed.obj --group Head --axis y --angle 30 >/dev/null
  $py -m kelvane split-back posed.obj --round combined.obj.round --out py >/dev/null
  "$top/bin/kelvane" split-back posed.obj --round combined.obj.round --out cli >/dev/null
  for part in $parts; do
    cmp "py/$(basename "$part")" "cli/$(basename "$part")" || fail "the wheel's round and kelvane's differ"
  done
  echo "wheel OK: $(basename "$wheel"): installed with pip --no-index, a posing round as kelvane's"
fi
