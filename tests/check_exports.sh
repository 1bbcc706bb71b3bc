#!/usr/bin/env bash
# Checks the plug-in's dynamic symbol table: exactly the names of the version script are
# defined there (unmangled), each in the script's version node, and every function declared in
# the public header is among them.
set -euo pipefail
lib=$1 map=$2 header=$3

script=$(perl -0pe 's#/\*.*?\*/##gs' "$map")
node=$(echo "$script" | grep -oE '^[A-Za-z_][A-Za-z0-9_]* *\{' | head -1 | tr -d ' {')
expected=$(echo "$script" | tr ' ;{' '\n\n\n' | grep -E '^[A-Za-z_][A-Za-z0-9_]*$' \
  | grep -vxE "global|local|$node" | sort -u)
symbols=$(nm -D --defined-only "$lib" | awk '$2 != "A" {print $3}')
actual=$(echo "$symbols" | sed 's/@.*//' | sort -u)
declared=$(grep -oE '^KV_API float [A-Za-z_0-9]+\(' "$header" | sed -E 's/^KV_API float //; s/\($//' | sort -u)
functions=$(nm -D --defined-only "$lib" | awk '$2 == "T" {print $3}' | sed 's/@.*//' | sort -u)

status=0
problem() { echo "$*"; status=1; }
[ "$expected" = "$actual" ] ||
  problem "dynamic symbols differ from the version script:" "$(diff <(echo "$expected") <(echo "$actual"))"
unversioned=$(echo "$symbols" | grep -v "@@$node\$" || true)
[ -n "$node" ] && [ -z "$unversioned" ] || problem "symbols outside the version node '$node': $unversioned"
missing=$(comm -23 <(echo "$declared") <(echo "$actual"))
[ -z "$missing" ] || problem "declared in the header but not exported: $missing"
undeclared=$(comm -13 <(echo "$declared") <(echo "$functions"))
[ -z "$undeclared" ] || problem "exported but not declared in the header: $undeclared"
! grep -q '^_Z' <<<"$symbols" || problem "mangled names are exported"
[ $status -eq 0 ] && echo "exports OK: $(echo "$actual" | wc -l) symbols"
exit $status
