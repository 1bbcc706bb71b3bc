#!/usr/bin/env bash
# Installs the Debian packages listed in scripts/packages.txt (or in the list file given as the
# argument, such as scripts/packages-windows.txt) that are not installed yet.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
missing=()
while read -r pkg; do
  pkg=${pkg%%#*}; pkg=${pkg//[[:space:]]/}
  [ -n "$pkg" ] || continue
  dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q 'install ok installed' || missing+=("$pkg")
done < "${1:-$here/packages.txt}"
[ ${#missing[@]} -eq 0 ] && exit 0
echo "Installing Debian packages: ${missing[*]}"
sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
