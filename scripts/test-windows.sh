#!/usr/bin/env bash
# Runs the Windows build's tests under Wine through CTest (test preset windows), after
# scripts/build-windows.sh. One Wine server serves the whole run and is stopped at the end, so
# that no Wine process outlives the run or holds CTest's output pipes open. The Wine prefix lives
# in the build folder (created on the first run).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh scripts/packages-windows.txt
[ -f build-windows/Kelvane4.dll ] || bash scripts/build-windows.sh
export WINEPREFIX=$PWD/build-windows/wine WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
export WINEARCH=win64
stop() { wineserver -k 2>/dev/null || true; wineserver -w 2>/dev/null || true; }
trap stop EXIT
mkdir -p "$WINEPREFIX"
# The prefix is made (or brought up to date) and its first server has ended before the one for
# the run starts: a prefix still being set up cannot create COM objects such as the dialog.
wineboot -i </dev/null >/dev/null 2>&1
wineserver -w
wineserver -p </dev/null >/dev/null 2>&1
ctest --preset windows -j2
