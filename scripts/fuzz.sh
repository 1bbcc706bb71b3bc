#!/usr/bin/env bash
# Builds the libFuzzer harnesses (clang 14, ASan + UBSan; preset "fuzz", folder build-fuzz) and
# runs every one for a fixed number of executions, starting from seeds written by the library's
# own writers. Fails at the first crash, leak, hang (-timeout), oversized allocation
# (-malloc_limit_mb) or broken harness check; the input that did it is kept in
# build-fuzz/artifacts/.
#
#   scripts/fuzz.sh [EXECS]   EXECS per harness; by default 200000 shared out among the harnesses
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
bash scripts/deps.sh
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz >/dev/null

build=build-fuzz
harnesses=()
for h in "$build"/fuzz_*; do [ -x "$h" ] && harnesses+=("$h"); done
[ ${#harnesses[@]} -gt 0 ] || { echo "no harnesses in $build"; exit 1; }
execs=${1:-$(( (200000 + ${#harnesses[@]} - 1) / ${#harnesses[@]} ))}

"$build"/kelvane_fuzz_seeds "$build/seeds" >/dev/null
mkdir -p "$build/artifacts"
total=0
start=$(date +%s)
for h in "${harnesses[@]}"; do
  name=${h##*/fuzz_}
  corpus="$build/corpus/$name"
  rm -rf "$corpus" && mkdir -p "$corpus"
  log="$build/fuzz_$name.log"
  case $name in  # inputs no longer than the files a harness needs: high exec/s
    psdmerge) max_len=65600 ;;  # two 100 x 100 images, the smallest that can be healed
    obj|grouplist) max_len=8192 ;;
    numbers) max_len=256 ;;  # one line
    *) max_len=4096 ;;
  esac
  if ! "$h" -runs="$execs" -max_len="$max_len" -timeout=10 -malloc_limit_mb=256 -rss_limit_mb=1024 -print_final_stats=1 \
       -artifact_prefix="$build/artifacts/$name-" "$corpus" "$build/seeds/$name" >"$log" 2>&1; then
    tail -n 40 "$log"
    echo "fuzzing stopped: fuzz_$name found a fault (log: $log; input in $build/artifacts/)"
    exit 1
  fi
  runs=$(awk '/stat::number_of_executed_units/ {print $2}' "$log")
  rate=$(awk '/stat::average_exec_per_sec/ {print $2}' "$log")
  units=$(find "$corpus" -type f | wc -l)
  echo "fuzz_$name: $runs executions, $rate exec/s, corpus $units inputs"
  total=$((total + runs))
done
echo "fuzzing finished: ${#harnesses[@]} harnesses, $total executions in $(( $(date +%s) - start )) s, no findings"
