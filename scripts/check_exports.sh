#!/usr/bin/env bash
# Compares the dynamic symbols libdvrmodules.so defines with the functions and
# variables the four public headers declare (scripts/public_names.py); fails on
# a name found on one side only. Takes build folders (default: build/host and
# build/board, those that exist) and uses the nm of each folder's tool chain.
set -euo pipefail
cd "$(dirname "$0")/.."

[ $# -gt 0 ] || set -- $(ls -d build/host build/board 2>/dev/null)
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
python3 scripts/public_names.py >"$tmp/declared"
status=0
for dir in "$@"; do
  lib=$dir/libdvrmodules.so
  nm=$(sed -n 's/^CMAKE_NM:FILEPATH=//p' "$dir/CMakeCache.txt")
  [ -f "$lib" ] || { echo "check_exports: $lib not built"; status=1; continue; }
  # __odr_asan.* are AddressSanitizer's marks beside exported variables.
  "$nm" -D --defined-only "$lib" | awk '{print $NF}' | grep -v '^__odr_asan\.' |
    grep -vxE '_init|_fini|_edata|_end|__bss_start' | sort -u >"$tmp/exported"
  comm -13 "$tmp/declared" "$tmp/exported" | sed "s|^|check_exports: $lib exports undeclared |"
  comm -23 "$tmp/declared" "$tmp/exported" | sed "s|^|check_exports: $lib lacks declared |"
  # The fake platform's --wrap belongs to test programs, never to the library.
  "$nm" -D --undefined-only "$lib" | awk '{print $NF}' | grep -E '^__(wrap|real)_' |
    sed "s|^|check_exports: $lib needs test-only |" || true
  if [ -n "$(comm -3 "$tmp/declared" "$tmp/exported")" ] ||
     "$nm" -D --undefined-only "$lib" | grep -qE ' __(wrap|real)_'; then
    status=1
  else
    echo "check_exports: $lib exports the $(wc -l <"$tmp/exported") public names and nothing else"
  fi
done
exit $status
