#!/usr/bin/env bash
# The open-file dialog in a real window: under Xvfb, `kelvane run` calls GetOpenDialog (which
# shows zenity's dialog) and then reads the selection back with GetFilePath, while xdotool
# works the dialog like a user. Run 1 types the folder of two files (one hidden, one with a
# UTF-8 name), shows hidden files, selects both and confirms; run 2 presses Escape.
# Every wait is bounded; everything started here is stopped on exit.
#
#   gui_dialog.sh KELVANE PLUGIN ARTEFACT_DIR     (leaves ARTEFACT_DIR/gui_dialog.png)
set -euo pipefail
kelvane=$1 plugin=$2 artefacts=$3
for tool in Xvfb zenity xdotool import; do
  command -v "$tool" >/dev/null || { echo "FAIL: $tool is not installed (scripts/deps.sh installs it)"; exit 1; }
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
  echo "FAIL: $*"
  for f in "$work"/out*; do [ -f "$f" ] && { echo "== $f"; cat "$f"; }; done
  exit 1
}

# Waits up to $2 seconds for file $1 to be non-empty.
waitFor() {
  local i
  for ((i = 0; i < $2 * 10; i++)); do [ -s "$1" ] && return 0; sleep 0.1; done
  return 1
}

# A private X server on a free display, and a private home for the dialog's settings.
Xvfb -displayfd 3 -screen 0 1280x1024x24 -nolisten tcp 3>"$work/display" 2>"$work/xvfb.log" &
pids+=($!)
waitFor "$work/display" 20 || fail "Xvfb did not start: $(cat "$work/xvfb.log")"
export DISPLAY=":$(tr -d '[:space:]' <"$work/display")"
unset WAYLAND_DISPLAY
export HOME="$work/home" XDG_CONFIG_HOME="$work/home/.config" XDG_DATA_HOME="$work/home/.local/share"
export XDG_CACHE_HOME="$work/home/.cache" XDG_RUNTIME_DIR="$work/run"
export GSETTINGS_BACKEND=memory NO_AT_BRIDGE=1 GDK_BACKEND=x11 DBUS_SESSION_BUS_ADDRESS=disabled:
mkdir -p "$HOME" "$XDG_RUNTIME_DIR"
chmod 700 "$XDG_RUNTIME_DIR"

# Starts `kelvane run $1` in the background; its output goes to out$2, its status to rc$2.
startScript() {
  (cd "$HOME" && timeout 45 "$kelvane" --plugin "$plugin" run "$1" >"$work/out$2" 2>&1; echo $? >"$work/rc$2") &
  pids+=($!)
}

# The dialog's window, once it is mapped and has the keyboard focus.
dialogWindow() {
  local win
  win=$(timeout 20 xdotool search --sync --onlyvisible --name '^Choose files to Gathermesh\.\.\.$' | head -n 1) ||
    fail "no dialog window appeared"
  [ -n "$win" ] || fail "no dialog window appeared"
  timeout 10 xdotool windowfocus --sync "$win" || fail "the dialog did not take the focus"
  sleep 0.5
  echo "$win"
}

# ---- run 1: choose two files -----------------------------------------------------------------
sel="$work/sel"
mkdir -p "$sel"
printf 'v 0 0 0\n' >"$sel/première pièce.obj"
printf 'v 1 1 1\n' >"$sel/.hidden part.obj"
cat >"$work/choose.kvs" <<'EOF'
GetOpenDialog --expect 2
GetFilePath --number 1
GetFilePath --number 2
GetFilePath --number 3 --expect -1719
ClearFileList
GetFilePath --number 1 --expect -1719
EOF
startScript "$work/choose.kvs" 1
dialogWindow >/dev/null
xdotool key ctrl+l
sleep 0.3
xdotool type --delay 20 "$sel/"
sleep 0.3
xdotool key Return   # into the folder
sleep 1.5
xdotool key ctrl+h   # show hidden files
sleep 1.5
xdotool key ctrl+a   # select both
sleep 0.7
import -window root "$artefacts/gui_dialog.png" || fail "no screenshot"
xdotool key Return   # open
waitFor "$work/rc1" 30 || fail "GetOpenDialog did not return"
[ "$(cat "$work/rc1")" = 0 ] || fail "run 1 failed"
chosen=$(sed -n 's/^  memBlock1: //p' "$work/out1" | sort)
expected=$(printf '%s\n' "$sel/.hidden part.obj" "$sel/première pièce.obj" | sort)
[ "$chosen" = "$expected" ] || fail "GetFilePath gave
$chosen
expected
$expected"

# ---- run 2: cancel with Escape ---------------------------------------------------------------
cat >"$work/cancel.kvs" <<'EOF'
GetOpenDialog --expect 0
GetFilePath --number 1 --expect -1719
EOF
startScript "$work/cancel.kvs" 2
dialogWindow >/dev/null
xdotool key Escape
waitFor "$work/rc2" 30 || fail "GetOpenDialog did not return after Escape"
[ "$(cat "$work/rc2")" = 0 ] || fail "run 2 failed"
grep -qx 'GetOpenDialog -> 0' "$work/out2" || fail "cancel did not return 0"

echo "OK: two files chosen and read back, Escape returned 0; screenshot $artefacts/gui_dialog.png"
