#!/usr/bin/env bash
# The split benchmark under Wine: times SplitOBJ and SplitOBJtoVyx on one synthetic combined
# mesh (default 1000 MB) with the Linux `kelvane` and with kelvane.exe under Wine, in the same
# session and on the same warm input, best of RUNS (default 2) each, and prints the ratio.
# Each timing is one whole `kelvane call`, process start included.
#   bench/obj/bench_windows.sh [SIZE_MB]     (build the release preset and scripts/build-windows.sh first)
set -euo pipefail
root=$(cd "$(dirname "$0")/../.." && pwd)
size=${1:-1000} runs=${RUNS:-2}
wine=$(command -v /usr/lib/wine/wine64 || command -v wine)
data=${BENCH_DIR:-$root/build/bench-data}
mkdir -p "$data"
# The tests' Wine prefix, and one Wine server for the whole run (stopped at the end).
export WINEPREFIX=${WINEPREFIX:-$root/build-windows/wine} WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
trap 'wineserver -k 2>/dev/null; rm -rf "$data"' EXIT
wineserver -p </dev/null >/dev/null 2>&1
in="$data/combined.obj"
"$root/build/obj_bench_gen" "$in" "$size" 24 >/dev/null
cat "$in" >/dev/null  # warm the page cache
"$wine" "$root/build-windows/kelvane.exe" call Version >/dev/null  # start Wine once

# best N CMD...: the shortest wall time of N runs, each into an empty output folder.
best() {
  local n=$1 t b=""
  shift
  for ((i = 0; i < n; i++)); do
    rm -rf "$data/out" && mkdir "$data/out"
    /usr/bin/time -f %e -o "$data/time" "$@" >/dev/null 2>&1
    t=$(tail -1 "$data/time")
    if [ -z "$b" ] || awk -v a="$t" -v c="$b" 'BEGIN { exit !(a < c) }'; then b=$t; fi
  done
  echo "$b"
}

printf 'input %s MB\n%-16s %9s %9s %7s\n' "$(( $(stat -c %s "$in") / 1000000 ))" export "Linux s" "Wine s" ratio
for op in SplitOBJ SplitOBJtoVyx; do
  l=$(best "$runs" "$root/build/kelvane" call "$op" --text "$in" --mem1 "$data/out/")
  w=$(best "$runs" "$wine" "$root/build-windows/kelvane.exe" call "$op" --text "Z:$in" --mem1 "Z:$data/out/")
  awk -v o="$op" -v l="$l" -v w="$w" 'BEGIN { printf "%-16s %9.2f %9.2f %6.2fx\n", o, l, w, w / l }'
done
