#!/usr/bin/env bash
# The main job: builds the plug-in and the host emulator, then runs a complete posing round
# on the sample model (examples/posing.kvs): append the parts, pose, split, transfer, check.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
bash scripts/deps.sh
cmake --preset release >/dev/null
cmake --build --preset release >/dev/null
echo "== build/libKelvane4.so: $(build/kelvane list | wc -l) exports"
echo "== The posing round: examples/posing.kvs on examples/model"
bash scripts/posing_round.sh build/kelvane
