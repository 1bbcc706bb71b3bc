# Sourced by the dialog tests, which define startScript and list the programs they need in
# $tools: a check that those and Xvfb are installed, a scratch folder $work, background
# processes (their ids in pids) stopped and the folder removed at exit, bounded waits, and a
# private X server on a free display (or the one in KELVANE_TEST_DISPLAY), exported in DISPLAY.
# fail prints its message and the runs' outputs ($work/out*).
for tool in Xvfb $tools; do
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
  echo "FAIL: $*" >&2
  for f in "$work"/out*; do [ -f "$f" ] && { echo "== $f"; cat "$f"; } >&2; done
  exit 1
}

# Waits up to $2 seconds for file $1 to be non-empty.
waitFor() {
  local i
  for ((i = 0; i < $2 * 10; i++)); do [ -s "$1" ] && return 0; sleep 0.1; done
  return 1
}

# The dialog's window, once it is mapped (waiting up to $1 seconds, default 20) and has the
# keyboard focus. A window that closes while xdotool walks the windows (the last run's dialog)
# makes the search fail with BadWindow: it is searched for again.
dialogWindow() {
  local win= deadline=$((SECONDS + ${1:-20}))
  while [ -z "$win" ] && [ "$SECONDS" -lt "$deadline" ]; do
    win=$(xdotool search --onlyvisible --name '^Choose files to Gathermesh\.\.\.$' 2>/dev/null | head -n 1) || win=
    [ -n "$win" ] || sleep 0.2
  done
  [ -n "$win" ] || fail "no dialog window appeared"
  timeout 10 xdotool windowfocus --sync "$win" || fail "the dialog did not take the focus"
  sleep 0.5
  echo "$win"
}

if [ -n "${KELVANE_TEST_DISPLAY:-}" ]; then  # the run's own X server (scripts/test-windows.sh)
  export DISPLAY=$KELVANE_TEST_DISPLAY
else
  Xvfb -displayfd 3 -screen 0 1280x1024x24 -nolisten tcp 3>"$work/display" 2>"$work/xvfb.log" &
  pids+=($!)
  waitFor "$work/display" 20 || fail "Xvfb did not start: $(cat "$work/xvfb.log")"
  export DISPLAY=":$(tr -d '[:space:]' <"$work/display")"
fi

# The scripts the dialog tests run: choose.kvs expects two files and reads them back; cancel.kvs
# expects the dialog to be cancelled.
cat >"$work/choose.kvs" <<'KVS'
GetOpenDialog --expect 2
GetFilePath --number 1
GetFilePath --number 2
GetFilePath --number 3 --expect -1719
ClearFileList
GetFilePath --number 1 --expect -1719
KVS
cat >"$work/cancel.kvs" <<'KVS'
GetOpenDialog --expect 0
GetFilePath --number 1 --expect -1719
KVS

# Run 2 of a dialog test: the dialog closed with Escape (waiting up to $1 seconds for it).
cancelWithEscape() {
  startScript "$work/cancel.kvs" 2
  dialogWindow "$1" >/dev/null
  xdotool key Escape
  waitFor "$work/rc2" 40 || fail "GetOpenDialog did not return after Escape"
  [ "$(cat "$work/rc2")" = 0 ] || fail "run 2 failed"
}
