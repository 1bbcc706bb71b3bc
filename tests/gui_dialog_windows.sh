#!/usr/bin/env bash
# The Windows open-file dialog (IFileOpenDialog) in a real window: under Xvfb, kelvane.exe runs
# under Wine, calls GetOpenDialog and reads the selection back with GetFilePath, while xdotool
# works the dialog like a user: run 1 types the folder of two files (one hidden), then both
# names, and confirms; run 2 presses Escape. Every wait is bounded; everything started here is
# stopped.
#
#   gui_dialog_windows.sh WINE KELVANE_EXE ARTEFACT_DIR   (leaves ARTEFACT_DIR/gui_dialog_windows.png)
set -euo pipefail
wine=$1 kelvane=$2 artefacts=$3
for tool in Xvfb xdotool import; do
  command -v "$tool" >/dev/null || { echo "FAIL: $tool is not installed (scripts/packages-windows.txt)"; exit 1; }
done

work=$(mktemp -d)
pids=()
cleanup() {
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
  wait 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT

fail() {
  echo "FAIL: $*" >&2
  for f in "$work"/out*; do [ -f "$f" ] && { echo "== $f"; cat "$f"; } >&2; done
  exit 1
}

waitFor() {
  local i
  for ((i = 0; i < $2 * 10; i++)); do [ -s "$1" ] && return 0; sleep 0.1; done
  return 1
}

Xvfb -displayfd 3 -screen 0 1280x1024x24 -nolisten tcp 3>"$work/display" 2>"$work/xvfb.log" &
pids+=($!)
waitFor "$work/display" 20 || fail "Xvfb did not start: $(cat "$work/xvfb.log")"
export DISPLAY=":$(tr -d '[:space:]' <"$work/display")"

# Starts `kelvane.exe run $1` in the background; output to out$2, status to rc$2.
startScript() {
  (cd "$work" && timeout 90 "$wine" "$kelvane" run "$1" >"$work/out$2" 2>&1; echo $? >"$work/rc$2") &
  pids+=($!)
}

dialogWindow() {
  local win
  win=$(timeout 60 xdotool search --sync --onlyvisible --name '^Choose files to Gathermesh\.\.\.$' | head -n 1) ||
    fail "no dialog window appeared"
  [ -n "$win" ] || fail "no dialog window appeared"
  timeout 10 xdotool windowactivate --sync "$win" 2>/dev/null || timeout 10 xdotool windowfocus --sync "$win" ||
    fail "the dialog did not take the focus"
  sleep 1
  echo "$win"
}

# ---- run 1: two files, one of them hidden ------------------------------------------------------
sel="$work/sel"
mkdir -p "$sel"
printf 'v 0 0 0\n' >"$sel/first part.obj"
printf 'v 1 1 1\n' >"$sel/.hidden part.obj"
winsel="Z:${sel//\//\\}"
cat >"$work/choose.kvs" <<'KVS'
GetOpenDialog --expect 2
GetFilePath --number 1
GetFilePath --number 2
GetFilePath --number 3 --expect -1719
ClearFileList
KVS
startScript choose.kvs 1
dialogWindow >/dev/null
xdotool type --delay 30 "$winsel"
xdotool key Return   # into the folder
sleep 2
xdotool key End shift+Home BackSpace   # the names replace the folder's path
xdotool type --delay 30 '"first part.obj" ".hidden part.obj"'
sleep 1
import -window root "$artefacts/gui_dialog_windows.png" || fail "no screenshot"
xdotool key Return   # open
waitFor "$work/rc1" 40 || fail "GetOpenDialog did not return in run 1"
[ "$(cat "$work/rc1")" = 0 ] || fail "run 1 failed"
chosen=$(tr -d '\r' <"$work/out1" | sed -n 's/^  memBlock1: //p' | sort)
expected=$(printf '%s\n' "$winsel\\.hidden part.obj" "$winsel\\first part.obj" | sort)
[ "$chosen" = "$expected" ] || fail "GetFilePath gave
$chosen
expected
$expected"

# ---- run 2: cancel with Escape -----------------------------------------------------------------
cat >"$work/cancel.kvs" <<'KVS'
GetOpenDialog --expect 0
GetFilePath --number 1 --expect -1719
KVS
startScript cancel.kvs 2
dialogWindow >/dev/null
xdotool key Escape
waitFor "$work/rc2" 40 || fail "GetOpenDialog did not return after Escape"
[ "$(cat "$work/rc2")" = 0 ] || fail "run 2 failed"

echo "OK: two files chosen and read back, Escape returned 0; screenshot $artefacts/gui_dialog_windows.png"
