#!/usr/bin/env bash
# Prints the figures the docs quote: the board build's stripped sizes of the
# tool and the library (the table of scripts/sizes.sh, which also compares them
# with the previous commit symbol by symbol), and the ratio of test code to
# product code (non-blank lines of C and C++ under tests/ against I2C/ and
# MODULES/), with the lines of case data beside it.
set -euo pipefail
cd "$(dirname "$0")/.."

./scripts/sizes.sh "$@"
echo

count() { git ls-files -- "$@" | grep -E '\.(c|cc|cpp|h|hpp)$' | xargs -r cat | grep -c -v '^[[:space:]]*$'; }
prod=$(count I2C MODULES)
tst=$(count tests)
fake=$(count tests/fake)
cases=$(git ls-files -- 'tests/cases/*' | xargs -r cat | grep -c -v '^[[:space:]]*$' || true)
echo "product code: $prod lines, test code: $tst lines (fake platform $fake), ratio $(( 100 * tst / prod ))%; case data: $cases lines"
