#!/usr/bin/env bash
# Times the OBJ splits on synthetic combined meshes against the scanning floor (`wc -l`) and
# the plain baseline split, with a warm page cache; prints MB/s, peak resident memory and
# the ratios, each split on one thread (KELVANE_THREADS=1) and on every core, and against
# Debian's tinyobjloader merely parsing the file (when libtinyobjloader-dev is installed). Each
# of the plug-in's splits runs RUNS times (default 3) and its best run counts; the baseline runs
# once. CPU time (user + system) is printed beside the wall time:
# on a busy machine it is the steadier figure. The generated files are deleted afterwards.
#   bench/obj/bench.sh [SIZE_MB ...]        (default 100; build the release preset first)
set -euo pipefail
root=$(cd "$(dirname "$0")/../.." && pwd)
bin="$root/build"
data=${BENCH_DIR:-$root/build/bench-data}
runs=${RUNS:-3}
mkdir -p "$data"
trap 'rm -rf "$data"' EXIT
sizes=("$@")
[ ${#sizes[@]} -gt 0 ] || sizes=(100)

# run N CMD...: the best of N runs, each in a fresh output folder; sets wall, kib and cpu.
run() {
  local n=$1 m w k c
  shift
  wall=""
  for ((i = 0; i < n; i++)); do
    rm -rf "$data/out" && mkdir -p "$data/out"
    m=$("$bin/obj_bench_measure" "$@" 2>&1 >/dev/null | tail -1) || { echo "failed: $* ($m)" >&2; return 1; }
    read -r w k c <<<"$m"
    if [ -z "$wall" ] || awk -v a="$w" -v b="$wall" 'BEGIN { exit !(a < b) }'; then wall=$w kib=$k cpu=$c; fi
  done
}

row() {  # label wall kib cpu [baseline wall, baseline cpu]
  awk -v l="$1" -v w="$2" -v k="$3" -v c="$4" -v bw="${5:-}" -v bc="${6:-}" -v b="$bytes" -v ww="$wc_w" -v wc="$wc_c" 'BEGIN {
    printf "%-28s %7.3f %7.3f %8.0f %9.0f %8.2fx %9s %9s %8.1fx %8.1fx\n", l, w, c, b / 1e6 / w, k / 1024, k * 1024 / b,
      (bw == "" ? "-" : sprintf("%.1fx", bw / w)), (bc == "" ? "-" : sprintf("%.1fx", bc / c)), w / ww, c / wc }'
}

for size in "${sizes[@]}"; do
  in="$data/combined.obj"
  "$bin/obj_bench_gen" "$in" "$size" 24
  bytes=$(stat -c %s "$in")
  cat "$in" >/dev/null  # warm the page cache
  run "$runs" wc -l "$in"
  wc_w=$wall wc_c=$cpu
  printf '\n%-28s %7s %7s %8s %9s %9s %9s %9s %9s %9s\n' "$(awk -v b="$bytes" 'BEGIN { printf "input %.0f MB", b / 1e6 }')" \
    wall cpu "MB/s" "peak MiB" peak/in "x base" "x base" "x wc -l" "x wc -l"
  printf '%-28s %7s %7s %8s %9s %9s %9s %9s %9s %9s\n' "" s s wall "" "" wall cpu wall cpu
  row "wc -l" "$wc_w" "$kib" "$wc_c"
  run 1 "$bin/obj_bench_baseline" obj "$in" "$data/out/"
  bo_w=$wall bo_c=$cpu
  row "baseline (obj)" "$wall" "$kib" "$cpu"
  run 1 "$bin/obj_bench_baseline" vyt "$in" "$data/out/"
  bv_w=$wall bv_c=$cpu
  row "baseline (vyt)" "$wall" "$kib" "$cpu"
  tiny=""
  if [ -x "$bin/obj_bench_tinyobj" ]; then  # a general parser merely reading the file
    run 1 "$bin/obj_bench_tinyobj" "$in"
    tiny=$wall
    row "tinyobjloader parse" "$wall" "$kib" "$cpu"
  fi
  for op in SplitOBJ SplitOBJtoVyx ListSplitOBJtoOBJ ListSplitOBJtoVyx; do
    list=()
    case $op in List*) list=("$in.groups") ;; esac
    for threads in 1 ""; do  # one thread, then as many as the machine has
      KELVANE_THREADS=$threads run "$runs" "$bin/obj_bench_split" "$op" "$in" "$data/out/" "${list[@]}"
      label="$op${threads:+ (1 thread)}"
      case $op in
        *Vyx) row "$label" "$wall" "$kib" "$cpu" "$bv_w" "$bv_c" ;;
        *) row "$label" "$wall" "$kib" "$cpu" "$bo_w" "$bo_c" ;;
      esac
      [ -n "$threads" ] && one=$wall
    done
    awk -v a="$one" -v b="$wall" -v t="$(nproc)" -v p="$tiny" 'BEGIN {
      printf "%-28s %.2fx faster on %d threads than on one", "", a / b, (t > 16 ? 16 : t)
      printf "%s", p == "" ? "\n" : sprintf("; %.2fx faster than the tinyobjloader parse\n", p / b) }' 
  done
  rm -f "$in" "$in.groups"
done
