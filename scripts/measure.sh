#!/usr/bin/env bash
# Prints the figures the docs quote: the board build's stripped sizes of the
# tool and the library (the table of scripts/sizes.sh, which also compares them
# with the previous commit symbol by symbol), and the share of test code in all
# code (non-blank lines of C and C++ under tests/, the fake platform included,
# against those plus I2C/ and MODULES/), with the lines of case data beside it
# so that moving code into data never hides it.
set -euo pipefail
cd "$(dirname "$0")/.."

./scripts/sizes.sh "$@"
echo

count() { git ls-files -- "$@" | grep -E '\.(c|cc|cpp|h|hpp)$' | xargs -r cat | grep -c -v '^[[:space:]]*$'; }
prod=$(count I2C MODULES)
tst=$(count tests)
fake=$(count tests/fake)
data=$(git ls-files -- 'tests/cases/*.case' | xargs -r cat | grep -c -v '^[[:space:]]*$' || true)
echo "product code: $prod lines, test code: $tst lines (fake platform $fake), test share $(( 100 * tst / (prod + tst) ))% of all code"
echo "case data: $data lines in tests/cases/*.case (not counted as code)"
