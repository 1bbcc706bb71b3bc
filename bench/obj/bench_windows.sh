#!/usr/bin/env bash
# The split benchmark under Wine: times the four OBJ splits on one synthetic combined
# mesh (default 1000 MB) and the Vyx-to-OBJ conversion of a 5-million-vertex mesh with the Linux
# `kelvane` and with kelvane.exe under Wine, in the same session and on the same warm input, best
# of RUNS (default 2) each, and prints the ratio. Each timing is one whole `kelvane call` (or
# `kelvane run`), process start included.
# The Wine prefix is the tests' own, made here when it is missing.
#   bench/obj/bench_windows.sh [SIZE_MB]     (build the release preset and scripts/build-windows.sh first)
set -euo pipefail
root=$(cd "$(dirname "$0")/../.." && pwd)
size=${1:-1000} runs=${RUNS:-2}
data=${BENCH_DIR:-$root/build/bench-data}
mkdir -p "$data"
# The tests' Wine prefix, and one Wine server for the whole run (stopped at the end).
source "$root/scripts/wine-env.sh"
wine=$wine64
trap 'wineserver -k 2>/dev/null; rm -rf "$data"' EXIT
[ -f "$WINEPREFIX/system.reg" ] || wine_prefix  # a fresh machine: the tests have not made it yet
wineserver -p </dev/null >/dev/null 2>&1 || true  # (one may be running already)
in="$data/combined.obj"
"$root/build/obj_bench_gen" "$in" "$size" 24 >/dev/null
cat "$in" >/dev/null  # warm the page cache
"$wine" "$root/build-windows/kelvane.exe" call Version >/dev/null || { echo "Wine cannot run kelvane.exe" >&2; exit 1; }

# best N CMD...: the shortest wall time of N runs, each into an empty output folder.
best() {
  local n=$1 t b=""
  shift
  for ((i = 0; i < n; i++)); do
    rm -rf "$data/out" && mkdir "$data/out"
    /usr/bin/time -f %e -o "$data/time" "$@" >/dev/null 2>&1 || { echo "failed: $*" >&2; return 1; }
    t=$(tail -1 "$data/time")
    if [ -z "$b" ] || awk -v a="$t" -v c="$b" 'BEGIN { exit !(a < c) }'; then b=$t; fi
  done
  echo "$b"
}

# The scripts each program runs (its paths, Z: for Wine): the list-driven splits load the
# polygroup list first; the Vyx conversion reads its face runs first, and a script that only
# reads them gives the time to subtract for the conversion's own.
for side in linux windows; do
  z=""; [ $side = windows ] && z="Z:"
  for op in ListSplitOBJtoOBJ ListSplitOBJtoVyx; do
    printf 'GroupListLoad --text "%s" --expect 0\n%s --text "%s" --mem1 "%s" --expect 0\n' \
      "$z$in.groups" "$op" "$z$in" "$z$data/out/" >"$data/$op.$side.kvs"
  done
  printf 'getFaceIDs --text "%s" --number 1\n' "$z$data/mesh.Vyx" >"$data/runs.$side.kvs"
  cat "$data/runs.$side.kvs" >"$data/vyx.$side.kvs"
  printf 'vyxtoOBJ --text "%s" --mem1 "%s" --expect 0\n' "$z$data/mesh.Vyx" "$z$data/out/mesh.obj" >>"$data/vyx.$side.kvs"
done

printf 'input %s MB\n%-18s %9s %9s %7s\n' "$(( $(stat -c %s "$in") / 1000000 ))" export "Linux s" "Wine s" ratio
l=$(best "$runs" "$root/build/kelvane" call Version)  # what a call costs apart from its work
w=$(best "$runs" "$wine" "$root/build-windows/kelvane.exe" call Version)
awk -v l="$l" -v w="$w" 'BEGIN { printf "%-18s %9.2f %9.2f\n", "(process start)", l, w }'
for op in SplitOBJ SplitOBJtoVyx ListSplitOBJtoOBJ ListSplitOBJtoVyx; do
  case $op in
    List*)
      l=$(best "$runs" "$root/build/kelvane" run "$data/$op.linux.kvs")
      w=$(best "$runs" "$wine" "$root/build-windows/kelvane.exe" run "Z:$data/$op.windows.kvs") ;;
    *)
      l=$(best "$runs" "$root/build/kelvane" call "$op" --text "$in" --mem1 "$data/out/")
      w=$(best "$runs" "$wine" "$root/build-windows/kelvane.exe" call "$op" --text "Z:$in" --mem1 "Z:$data/out/") ;;
  esac
  awk -v o="$op" -v l="$l" -v w="$w" 'BEGIN { printf "%-18s %9.2f %9.2f %6.2fx\n", o, l, w, w / l }'
done

# Vyx to OBJ: the Vyx bench's mesh (5 million vertices) converted once per program. MB/s counts
# the OBJ text written in the whole script's time, and in the conversion's own time.
"$root/build/kelvane_bench_vyx" --mesh "$data/mesh.Vyx"
sync  # everything written so far on disk: its write-back would slow the first timings
lr=$(best "$runs" "$root/build/kelvane" run "$data/runs.linux.kvs")
wr=$(best "$runs" "$wine" "$root/build-windows/kelvane.exe" run "Z:$data/runs.windows.kvs")
l=$(best "$runs" "$root/build/kelvane" run "$data/vyx.linux.kvs")
w=$(best "$runs" "$wine" "$root/build-windows/kelvane.exe" run "Z:$data/vyx.windows.kvs")
mb=$(( $(stat -c %s "$data/out/mesh.obj") / 1000000 ))
awk -v l="$l" -v w="$w" -v lr="$lr" -v wr="$wr" -v mb="$mb" 'BEGIN {
  printf "%-18s %9.2f %9.2f %6.2fx   %d MB of OBJ text: %.0f and %.0f MB/s\n", "vyxtoOBJ", l, w, w / l, mb, mb / l, mb / w
  printf "%-18s %9.2f %9.2f %6.2fx   %.0f and %.0f MB/s\n", "  conversion alone", l - lr, w - wr, (w - wr) / (l - lr), mb / (l - lr), mb / (w - wr) }'
