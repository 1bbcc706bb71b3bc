#!/usr/bin/env bash
# Builds from scratch and runs every test: the optimised build, then the whole suite again
# under AddressSanitizer + UndefinedBehaviorSanitizer, the tests of the threaded OBJ splits and
# Vyx conversion under ThreadSanitizer, then every fuzz harness for 200000 executions in all
# (scripts/fuzz.sh).
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
echo "== tsan: the threaded OBJ splits and Vyx conversion under ThreadSanitizer"
rm -rf build-tsan
cmake --preset tsan >/dev/null
cmake --build --preset tsan
ctest --preset tsan -j2
echo "== fuzz: every harness, 200000 executions in all"
rm -rf build-fuzz
bash scripts/fuzz.sh
