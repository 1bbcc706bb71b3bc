#!/usr/bin/env bash
# The Linux release archive as a user gets it: packed from this build and unpacked into an empty
# folder. Its kelvane finds the plug-in from its own location and runs the posing round; the
# plug-in needs no C++ runtime of the host; a find_package project and a pkg-config build link
# against it and call Version.
#   tests/check_package.sh BUILD_DIR
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
archive=$(bash "$root/scripts/package.sh" "$1" "$work/dist" | grep "linux-x86_64.tar.gz$")  # a Windows zip may follow
mkdir "$work/unpacked"
tar -C "$work/unpacked" -xzf "$archive"
top=$(echo "$work"/unpacked/*)
version=$(basename "$top" | cut -d- -f2)

for f in bin/kelvane lib/libKelvane4.so lib/libKelvane4.so.4 include/kelvane/Kelvane4.h \
         lib/cmake/Kelvane4/Kelvane4Config.cmake lib/pkgconfig/kelvane4.pc README.md LICENSE CHANGELOG.md; do
  [ -e "$top/$f" ] || { echo "the archive lacks $f"; exit 1; }
done
[ "$("$top/bin/kelvane" --version)" = "kelvane $version" ] || { echo "kelvane --version is not $version"; exit 1; }
objdump -p "$top/lib/libKelvane4.so.4" | grep -E 'NEEDED.*(libstdc\+\+|libgcc_s)' && { echo "the plug-in needs the C++ runtime"; exit 1; }
bash "$root/scripts/posing_round.sh" "$top/bin/kelvane" | tail -n 1
# The installed Python module loads the installed plug-in and explains its codes.
(cd "$work" && PYTHONPATH="$top/lib/python3/dist-packages" KELVANE_PLUGIN="$top/lib/libKelvane4.so.4" python3 -c '
import kelvane
assert kelvane.meaning("SplitOBJ", -1) == "the input file cannot be opened", kelvane.meaning("SplitOBJ", -1)
assert kelvane.Plugin().call("Version")[0] > 0') || { echo "the installed Python module does not work"; exit 1; }

cd "$work"
mkdir consumer
printf '#include <stdio.h>\n#include <kelvane/Kelvane4.h>\nint main(void) { printf("%%g\\n", Version(0, 0, 0, 0)); return 0; }\n' \
  > consumer/main.c
printf 'cmake_minimum_required(VERSION 3.25)\nproject(consumer C)\nfind_package(Kelvane4 %s CONFIG REQUIRED)\n%s\n%s\n' \
  "$version" 'add_executable(consumer main.c)' 'target_link_libraries(consumer PRIVATE Kelvane4::Kelvane4)' > consumer/CMakeLists.txt
cmake -S consumer -B consumer/build -G Ninja -DCMAKE_PREFIX_PATH="$top" >/dev/null
cmake --build consumer/build >/dev/null
cc consumer/main.c $(PKG_CONFIG_PATH="$top/lib/pkgconfig" pkg-config --cflags --libs kelvane4) -o consumer/pc
for consumer in consumer/build/consumer "env LD_LIBRARY_PATH=$top/lib consumer/pc"; do
  got=$($consumer)
  [ "$got" = "$version" ] || { echo "$consumer: Version gave $got, not $version"; exit 1; }
done
echo "archive OK: $(basename "$archive"): posing round, find_package and pkg-config consumers"
