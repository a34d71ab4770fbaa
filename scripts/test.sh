#!/usr/bin/env bash
# Installs what is missing, builds both targets and runs every test: the host
# under AddressSanitizer and UBSan, the board under qemu-ppc-static, and the
# thread tests under ThreadSanitizer. The board build and an optimised host
# build without sanitizers (`release`, library and tool only) also install
# into a scratch tree, build the example program against it and make and
# check their Debian packages.
set -euo pipefail
cd "$(dirname "$0")/.."

./scripts/install-deps.sh
status=0
for preset in host board release; do
  echo "== $preset"
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset"
  ctest --preset "$preset" || status=1
done
# The thread tests once more under ThreadSanitizer.
echo "== tsan"
cmake --preset tsan >/dev/null
cmake --build --preset tsan
ctest --preset tsan || status=1
exit $status
