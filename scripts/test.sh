#!/usr/bin/env bash
# Installs what is missing, checks the sources (format, layer rules, function
# lengths), builds both targets and runs every test: the host under
# AddressSanitizer and UBSan, the board under qemu-ppc-static, and the thread
# tests under ThreadSanitizer. Then checks the built objects against the layer
# rules and the exported names against the public headers, and prints the
# board build's sizes against the previous commit. The board build and an
# optimised host build without sanitizers (`release`, library and tool only)
# also install into a scratch tree, build the example program against it and
# make and check their Debian packages.
set -euo pipefail
cd "$(dirname "$0")/.."

./scripts/install-deps.sh
status=0
echo "== checks of the sources"
./scripts/check_format.sh || status=1
./scripts/check_layers.sh || status=1
./scripts/long_functions.sh || status=1
for preset in host board release; do
  echo "== $preset"
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset"
  ctest --preset "$preset" || status=1
done
echo "== checks of the builds"
./scripts/check_layers.sh build/host build/board || status=1
./scripts/check_exports.sh build/host build/board || status=1
# The thread tests once more under ThreadSanitizer.
echo "== tsan"
cmake --preset tsan >/dev/null
cmake --build --preset tsan
ctest --preset tsan || status=1
echo "== sizes"
./scripts/sizes.sh || true
exit $status
