#!/usr/bin/env bash
# Cross-builds the Windows plug-in with MinGW-w64 (preset windows): build-windows/Kelvane4.dll,
# build-windows/kelvane.exe and the test programs. Installs the Debian packages it needs first
# (scripts/packages-windows.txt).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh scripts/packages-windows.txt
cmake --preset windows >/dev/null
cmake --build --preset windows
