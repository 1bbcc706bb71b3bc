#!/usr/bin/env bash
# Runs the posing round (examples/posing.kvs) on the sample model in a scratch folder with the
# given `kelvane` program, and prints a summary. Fails when any call or check fails.
#   scripts/posing_round.sh build/kelvane
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
kelvane=$(cd "$(dirname "$1")" && pwd)/$(basename "$1")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
MODEL="$root/examples/model" "$kelvane" run "$root/examples/posing.kvs" | tee round.log
parts=$(ls "$root"/examples/model/*.obj | wc -l)
checks=$(grep -c '^  ok  ' round.log || true)
echo
echo "== Summary"
echo "parts:          $parts ($(cd "$root/examples/model" && ls *.obj | sed 's/\.obj$//' | tr '\n' ' '))"
echo "combined mesh:  $(grep -c '^v ' combined.obj) vertices, $(grep -c '^f' combined.obj) faces, $(grep -c '^g' combined.obj) group lines"
echo "files written:  $(ls [0-9]*.obj | wc -l) posed parts ($(ls [0-9]*.obj | tr '\n' ' ')), $(ls *.Vyt | wc -l) vertex files ($(ls *.Vyt | tr '\n' ' '))"
echo "checks passed:  $checks of $parts parts"
[ "$checks" -eq "$parts" ]
