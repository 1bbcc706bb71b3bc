#!/usr/bin/env bash
# Builds from scratch and runs every test: the optimised build, then the whole suite again
# under AddressSanitizer + UndefinedBehaviorSanitizer.
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
