#!/usr/bin/env bash
# The main job: builds the plug-in and the host emulator, lists the exports and runs the
# sample script in a scratch folder.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
bash scripts/deps.sh
cmake --preset release >/dev/null
cmake --build --preset release >/dev/null
echo "== Exports of build/libKelvane4.so"
build/kelvane list
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
echo "== examples/sample.kvs"
(cd "$work" && "$root/build/kelvane" run "$root/examples/sample.kvs")
echo "== examples/project.kvs"
(cd "$work" && "$root/build/kelvane" run "$root/examples/project.kvs")
