#!/usr/bin/env bash
# Fails when a C or C++ file of the product, the tests, the benchmarks or the
# fuzzers is not as clang-format (the repository's .clang-format) writes it.
# Fix with: git ls-files -- '*.c' '*.cpp' '*.h' | xargs clang-format -i
set -euo pipefail
cd "$(dirname "$0")/.."
git ls-files -- '*.c' '*.cpp' '*.h' | xargs clang-format --dry-run -Werror
echo "check_format: $(git ls-files -- '*.c' '*.cpp' '*.h' | wc -l) files as clang-format writes them"
