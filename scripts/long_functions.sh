#!/usr/bin/env bash
# Reports the longest functions of the product code (I2C/, MODULES/) and fails
# when one is longer than the cutoff. A function's length is its body's lines
# that are neither blank nor comment-only, counted between the opening brace
# and the closing brace that the formatter puts alone at the start of a line
# (BraceWrapping.AfterFunction; member functions written inside their class
# are short and not counted). Usage: long_functions.sh [how many to list]
set -euo pipefail
cd "$(dirname "$0")/.."

cutoff=95
git ls-files -- 'I2C/*.cpp' 'MODULES/*.cpp' | xargs awk '
  FNR == 1 { sig = "" }
  /^\{$/ { inside = 1; n = 0; name = sig; next }
  inside && /^\}/ { print n, FILENAME ": " name; inside = 0; next }
  inside && !/^[[:space:]]*$/ && !/^[[:space:]]*(\/\/|\/\*|\*)/ { n++ }
  !inside && /^[A-Za-z_].*\(/ { sig = $0 }
' | sort -rn >"${TMPDIR:-/tmp}/long_functions.$$"
trap 'rm -f "${TMPDIR:-/tmp}/long_functions.$$"' EXIT
echo "longest functions (body lines without blanks and comments; cutoff $cutoff):"
head -n "${1:-10}" "${TMPDIR:-/tmp}/long_functions.$$"
over=$(awk -v c=$cutoff '$1 > c' "${TMPDIR:-/tmp}/long_functions.$$")
if [ -n "$over" ]; then
  echo "long_functions: longer than $cutoff lines; split them:"
  echo "$over"
  exit 1
fi
