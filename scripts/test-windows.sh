#!/usr/bin/env bash
# Runs the Windows build's tests under Wine through CTest (test preset windows), after
# scripts/build-windows.sh. One Wine server and one X server (Xvfb, for the dialog) serve the
# whole run and are stopped at the end. Wine's own background programs (services, device
# drivers, the desktop) are started before CTest with their output going nowhere: started by a
# test, they would inherit and hold CTest's output pipes. The Wine prefix lives in the build
# folder (created on the first run).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh scripts/packages-windows.txt
[ -f build-windows/Kelvane4.dll ] || bash scripts/build-windows.sh
source scripts/wine-env.sh
xvfb=
stop() {
  wineserver -k 2>/dev/null || true
  wineserver -w 2>/dev/null || true
  [ -z "$xvfb" ] || kill "$xvfb" 2>/dev/null || true
  rm -f "${display_file:-}"
}
trap stop EXIT
display_file=$(mktemp)
Xvfb -displayfd 3 -screen 0 1280x1024x24 -nolisten tcp 3>"$display_file" </dev/null >/dev/null 2>&1 &
xvfb=$!
for _ in $(seq 200); do [ -s "$display_file" ] && break; sleep 0.1; done
[ -s "$display_file" ] || { echo "Xvfb did not start" >&2; exit 1; }
export DISPLAY=":$(tr -d '[:space:]' <"$display_file")" KELVANE_TEST_DISPLAY
KELVANE_TEST_DISPLAY=$DISPLAY
wine_prefix
wineserver -p </dev/null >/dev/null 2>&1
"$wine64" cmd /c exit </dev/null >/dev/null 2>&1
ctest --preset windows -j2 "$@"
