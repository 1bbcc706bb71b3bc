#!/usr/bin/env bash
# Times the OBJ splits on synthetic combined meshes against the scanning floor (`wc -l`) and
# the plain baseline split, with a warm page cache; prints MB/s, peak resident memory and
# the ratios. The generated files are deleted afterwards.
#   bench/obj/bench.sh [SIZE_MB ...]        (default 100; build the release preset first)
set -euo pipefail
root=$(cd "$(dirname "$0")/../.." && pwd)
bin="$root/build"
data=${BENCH_DIR:-$root/build/bench-data}
mkdir -p "$data"
trap 'rm -rf "$data"' EXIT
sizes=("$@")
[ ${#sizes[@]} -gt 0 ] || sizes=(100)

# run NAME CMD...: times one run in a fresh output folder; sets secs and kib.
run() {
  local name=$1
  shift
  rm -rf "$data/out" && mkdir -p "$data/out"
  local m
  if ! m=$("$bin/obj_bench_measure" "$@" 2>&1 >/dev/null | tail -1); then
    echo "$name failed: $m" >&2
    return 1
  fi
  read -r secs kib <<<"$m"
}

for size in "${sizes[@]}"; do
  in="$data/combined.obj"
  "$bin/obj_bench_gen" "$in" "$size" 24
  bytes=$(stat -c %s "$in")
  mb=$(awk -v b="$bytes" 'BEGIN { printf "%.1f", b / 1e6 }')
  cat "$in" >/dev/null  # warm the page cache
  run "wc -l" wc -l "$in"
  wc_s=$secs
  printf '\n%-20s %8s %9s %10s %9s %12s %9s\n' "input $mb MB" seconds MB/s "peak MiB" peak/in "vs baseline" "vs wc -l"
  declare -A base_s=()
  for op in baseline:obj baseline:vyt wc SplitOBJ SplitOBJtoVyx ListSplitOBJtoOBJ ListSplitOBJtoVyx; do
    case $op in
      wc) secs=$wc_s; kib=0; label="wc -l" ;;
      baseline:*) run "$op" "$bin/obj_bench_baseline" "${op#baseline:}" "$in" "$data/out/"; label="baseline (${op#baseline:})"
                  base_s[${op#baseline:}]=$secs ;;
      List*) run "$op" "$bin/obj_bench_split" "$op" "$in" "$data/out/" "$in.groups" || continue; label=$op ;;
      *) run "$op" "$bin/obj_bench_split" "$op" "$in" "$data/out/" || continue; label=$op ;;
    esac
    kind=obj
    case $op in *Vyx|*vyt) kind=vyt ;; esac
    awk -v l="$label" -v s="$secs" -v k="$kib" -v b="$bytes" -v bs="${base_s[$kind]}" -v w="$wc_s" 'BEGIN {
      printf "%-20s %8.3f %9.0f %10.0f %9s %12s %9.2f\n", l, s, b / 1e6 / s, k / 1024,
             (k ? sprintf("%.2fx", k * 1024 / b) : "-"), (l ~ /^(baseline|wc)/ ? "-" : sprintf("%.1fx", bs / s)), s / w }'
  done
  rm -f "$in" "$in.groups"
done
