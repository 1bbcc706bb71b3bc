#!/usr/bin/env bash
# Builds from scratch and runs every test: the optimised build, then the whole suite again
# under AddressSanitizer + UndefinedBehaviorSanitizer, then every fuzz harness for 200000
# executions in all (scripts/fuzz.sh).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
for preset in release asan; do
  echo "== $preset: configure, build, test"
  rm -rf "build$([ $preset = release ] || echo "-$preset")"
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset"
  ctest --preset "$preset" -j2
done
echo "== fuzz: every harness, 200000 executions in all"
rm -rf build-fuzz
bash scripts/fuzz.sh
