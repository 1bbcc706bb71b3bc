#!/usr/bin/env bash
# Runs a posing round script (default examples/posing.kvs) on the sample model in a scratch
# folder with the given `kelvane` program, and prints a summary. Fails when any call or check
# fails. With a third argument, an empty folder, the round runs there and its files are kept.
#   scripts/posing_round.sh build/kelvane [examples/posing_list.kvs [FOLDER]]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
kelvane=$(cd "$(dirname "$1")" && pwd)/$(basename "$1")
script=$(cd "$(dirname "${2:-$root/examples/posing.kvs}")" && pwd)/$(basename "${2:-posing.kvs}")
if [ -n "${3:-}" ]; then
  work=$3
  if [ -n "$(ls -A "$work")" ]; then echo "posing_round.sh: $work is not empty" >&2; exit 2; fi
else
  work=$(mktemp -d)
  trap 'rm -rf "$work"' EXIT
fi
cd "$work"
MODEL="$root/examples/model" "$kelvane" run "$script" | tee round.log
parts=$(ls "$root"/examples/model/*.obj | wc -l)
checks=$(grep -c '^  ok  ' round.log || true)
echo
echo "== Summary"
echo "parts:          $parts ($(cd "$root/examples/model" && LC_ALL=C ls *.obj | sed 's/\.obj$//' | paste -sd' '))"
echo "combined mesh:  $(grep -c '^v ' combined.obj) vertices, $(grep -c '^f' combined.obj) faces, $(grep -c '^g' combined.obj) group lines"
parts_out=$(LC_ALL=C ls *.obj | grep -vxE 'combined.obj|posed.obj')
echo "files written:  $(echo "$parts_out" | wc -l) posed parts ($(echo $parts_out)), $(ls *.Vyt | wc -l) vertex files ($(LC_ALL=C ls *.Vyt | paste -sd' '))"
echo "checks passed:  $checks of $parts parts"
[ "$checks" -eq "$parts" ]
