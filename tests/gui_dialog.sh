#!/usr/bin/env bash
# The open-file dialog in a real window: under Xvfb, `kelvane run` calls GetOpenDialog and reads
# the selection back with GetFilePath, while xdotool works the dialog like a user. Run 1 (zenity,
# no session bus) chooses two files (one hidden, one with a UTF-8 name); run 2 presses Escape;
# run 3 makes run 1's choice through the file-chooser portal on a private session bus, with no
# dialog program on the plug-in's PATH.
#   gui_dialog.sh KELVANE PLUGIN ARTEFACT_DIR     (leaves ARTEFACT_DIR/gui_dialog.png)
set -euo pipefail
kelvane=$1 plugin=$2 artefacts=$3
tools="zenity xdotool import dbus-daemon dbus-send dbus-update-activation-environment"

# A private X server on a free display, and a private home for the dialog's settings.
source "$(dirname "$0")/xvfb_session.sh"
unset WAYLAND_DISPLAY
export HOME="$work/home" XDG_CONFIG_HOME="$work/home/.config" XDG_DATA_HOME="$work/home/.local/share"
export XDG_CACHE_HOME="$work/home/.cache" XDG_RUNTIME_DIR="$work/run"
export GSETTINGS_BACKEND=memory NO_AT_BRIDGE=1 GDK_BACKEND=x11 DBUS_SESSION_BUS_ADDRESS=disabled:
mkdir -p "$HOME" "$XDG_RUNTIME_DIR"
chmod 700 "$XDG_RUNTIME_DIR"

# Starts `kelvane run $1` in the background (with the plug-in's PATH $3, when given); its output
# goes to out$2, its status to rc$2.
startScript() {
  (cd "$HOME" && timeout 45 env PATH="${3:-$PATH}" "$kelvane" --plugin "$plugin" run "$1" >"$work/out$2" 2>&1
   echo $? >"$work/rc$2") &
  pids+=($!)
}

# Chooses the two files of $sel in run $1 ($2: the plug-in's PATH) and checks what the plug-in
# hands back; $3, when given, is where the screenshot of the dialog goes.
chooseBoth() {
  startScript "$work/choose.kvs" "$1" "${2:-}"
  dialogWindow >/dev/null
  # The folder typed into the location bar and opened, hidden files shown, both files selected.
  xdotool key ctrl+l sleep 0.3 type --delay 20 "$sel/"
  xdotool sleep 0.3 key Return sleep 1.5 key ctrl+h sleep 1.5 key ctrl+a sleep 0.7
  [ -z "${3:-}" ] || import -window root "$3" || fail "no screenshot"
  xdotool key Return   # open
  waitFor "$work/rc$1" 30 || fail "GetOpenDialog did not return in run $1"
  [ "$(cat "$work/rc$1")" = 0 ] || fail "run $1 failed"
  local chosen expected
  chosen=$(sed -n 's/^  memBlock1: //p' "$work/out$1" | sort)
  expected=$(printf '%s\n' "$sel/.hidden part.obj" "$sel/première pièce.obj" | sort)
  [ "$chosen" = "$expected" ] || fail "run $1: GetFilePath gave
$chosen
expected
$expected"
}

# ---- run 1: choose two files with zenity --------------------------------------------------------
sel="$work/sel"
mkdir -p "$sel"
printf 'v 0 0 0\n' >"$sel/première pièce.obj"
printf 'v 1 1 1\n' >"$sel/.hidden part.obj"
chooseBoth 1 "" "$artefacts/gui_dialog.png"

# ---- run 2: cancel with Escape ------------------------------------------------------------------
cancelWithEscape 20
grep -qx 'GetOpenDialog -> 0' "$work/out2" || fail "cancel did not return 0"

# ---- run 3: the same choice through the file-chooser portal -------------------------------------
dbus-daemon --session --nofork --print-address=4 4>"$work/bus" 2>"$work/bus.log" &
pids+=($!)
waitFor "$work/bus" 20 || fail "no session bus: $(cat "$work/bus.log")"
DBUS_SESSION_BUS_ADDRESS=$(head -n 1 "$work/bus")
export DBUS_SESSION_BUS_ADDRESS XDG_CURRENT_DESKTOP=GNOME   # the GTK back end serves this desktop
timeout 20 dbus-update-activation-environment DISPLAY HOME XDG_CONFIG_HOME XDG_DATA_HOME XDG_CACHE_HOME \
  XDG_RUNTIME_DIR XDG_CURRENT_DESKTOP GSETTINGS_BACKEND NO_AT_BRIDGE GDK_BACKEND || fail "no activation environment"
timeout 30 dbus-send --session --print-reply --dest=org.freedesktop.DBus /org/freedesktop/DBus \
  org.freedesktop.DBus.StartServiceByName string:org.freedesktop.portal.Desktop uint32:0 >/dev/null ||
  fail "the portal did not start"
chooseBoth 3 "$work/no-dialog-programs"

echo "OK: two files chosen and read back (zenity, then the portal), Escape returned 0;" \
  "screenshot $artefacts/gui_dialog.png"
