#!/usr/bin/env bash
# The main job: builds the plug-in and the host emulator, then runs a complete posing round
# on the sample model (examples/posing.kvs): append the parts, pose, split, transfer, check.
# Its files stay in build/demo/, with pictures of the mesh before and after posing.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
bash scripts/deps.sh
cmake --preset release >/dev/null
cmake --build --preset release >/dev/null
echo "== build/libKelvane4.so: $(build/kelvane list | wc -l) exports"
echo "== The posing round: examples/posing.kvs on examples/model"
rm -rf build/demo && mkdir -p build/demo
bash scripts/posing_round.sh build/kelvane examples/posing.kvs build/demo
echo
echo "== Pictures"
build/kelvane render build/demo/combined.obj --out build/demo/rest.png >/dev/null
build/kelvane render build/demo/posed.obj --out build/demo/posed.png >/dev/null
build/kelvane render build/demo/combined.obj build/demo/posed.obj --out build/demo/compare.png >/dev/null
for picture in rest posed compare; do echo "$root/build/demo/$picture.png"; done
