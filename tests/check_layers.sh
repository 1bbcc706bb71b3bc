#!/usr/bin/env bash
# The layers of src/, as the README's Architecture draws them, checked include by include:
#   util/ includes only util/; platform/ only platform/ and util/; only the export table
#   includes the public header and the dialog seam; no subsystem holds a platform #if.
#   tests/check_layers.sh SOURCE_DIR
set -uo pipefail
cd "$1/src" || exit 2
status=0
fail() { echo "$1"; status=1; }
includes() { grep -Hn '^#include "' "$@" 2>/dev/null | sed 's/#include "\(.*\)".*/\1/'; }
while IFS=: read -r file line target; do
  case $target in util/*) ;; *) fail "$file:$line: util/ includes $target" ;; esac
done < <(includes util/*)
while IFS=: read -r file line target; do
  case $target in util/* | platform/*) ;; *) fail "$file:$line: platform/ includes $target" ;; esac
done < <(includes platform/*)
subsystems=$(ls *.cpp *.h leanOBJ/* | grep -vx 'Kelvane4.cpp')
while IFS=: read -r file line target; do
  case $target in
    kelvane/* | kelvane_version.h | platform/Dialog.h) fail "$file:$line: a subsystem includes $target" ;;
  esac
done < <(includes $subsystems)
grep -Hn '^#\s*if.*\(_WIN32\|__APPLE__\|__linux__\|__MACH__\)' $subsystems && fail "a subsystem holds a platform #if"
[ $status -eq 0 ] && echo "layers OK: $(ls util/* platform/* $subsystems Kelvane4.cpp | wc -l) files"
exit $status
