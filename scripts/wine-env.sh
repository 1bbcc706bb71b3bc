# Sourced by the scripts that run the Windows build under Wine: the Wine settings they share (the
# prefix in the build folder, no debug output, no .NET or HTML engine to install), $wine64, and
# wine_prefix, which makes the prefix (or brings it up to date) and waits until its first server
# has ended: a prefix still being set up cannot create COM objects such as the dialog.
export WINEPREFIX="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)/build-windows/wine"
export WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml=" WINEARCH=win64
wine64=$(command -v wine64 || echo /usr/lib/wine/wine64)
wine_prefix() {
  mkdir -p "$WINEPREFIX"
  wineboot -i </dev/null >/dev/null 2>&1
  wineserver -w
}
