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
tools="xdotool import"

source "$(dirname "$0")/xvfb_session.sh"

# Starts `kelvane.exe run $1` in the background (Wine reaches the script through drive Z:);
# output to out$2, status to rc$2.
startScript() {
  (cd "$work" && timeout 90 "$wine" "$kelvane" run "Z:$1" >"$work/out$2" 2>&1; echo $? >"$work/rc$2") &
  pids+=($!)
}

# ---- run 1: two files, one of them hidden ------------------------------------------------------
sel="$work/sel"
mkdir -p "$sel"
printf 'v 0 0 0\n' >"$sel/first part.obj"
printf 'v 1 1 1\n' >"$sel/.hidden part.obj"
winsel="Z:${sel//\//\\}"
startScript "$work/choose.kvs" 1
dialogWindow 60 >/dev/null
# Into the folder, then both names in place of the folder's path.
xdotool type --delay 30 "$winsel"
xdotool key Return sleep 2 key End shift+Home BackSpace type --delay 30 '"first part.obj" ".hidden part.obj"'
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
cancelWithEscape 60

echo "OK: two files chosen and read back, Escape returned 0; screenshot $artefacts/gui_dialog_windows.png"
