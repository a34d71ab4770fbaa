#!/usr/bin/env bash
# Prints the figures the docs quote: stripped sizes of the board build's tool
# and library, and the share of test code in all code (non-blank lines of C and
# C++ under tests/, the fake platform included, against those plus I2C/ and
# MODULES/), with the lines of case data beside it so that moving code into
# data never hides it.
set -euo pipefail
cd "$(dirname "$0")/.."

board=build/board
if [ ! -f "$board/dvr_i2c" ]; then
  cmake --preset board >/dev/null && cmake --build --preset board --target dvr_i2c dvr_modules dvr_modules_shared
fi
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
printf '%-20s %10s %10s %8s\n' file bytes stripped text
for f in dvr_i2c libdvrmodules.so libdvrmodules.a; do
  powerpc-linux-gnu-strip --strip-unneeded -o "$tmp/$f" "$board/$f"
  text=$(powerpc-linux-gnu-size -t "$tmp/$f" | tail -1 | awk '{print $1}')
  printf '%-20s %10d %10d %8d\n' "$f" "$(stat -c %s "$board/$f")" "$(stat -c %s "$tmp/$f")" "$text"
done

count() { git ls-files -- "$@" | grep -E '\.(c|cc|cpp|h|hpp)$' | xargs -r cat | grep -c -v '^[[:space:]]*$'; }
prod=$(count I2C MODULES)
tst=$(count tests)
data=$(git ls-files -- 'tests/cases/*.case' | xargs -r cat | grep -c -v '^[[:space:]]*$' || true)
echo "product code: $prod lines, test code: $tst lines, test share $(( 100 * tst / (prod + tst) ))% of all code"
echo "case data: $data lines in tests/cases/*.case (not counted as code)"
