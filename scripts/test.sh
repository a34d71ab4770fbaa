#!/usr/bin/env bash
# Installs what is missing, builds both targets and runs every test: the host
# under AddressSanitizer and UBSan, the board under qemu-ppc-static.
set -euo pipefail
cd "$(dirname "$0")/.."

./scripts/install-deps.sh
status=0
for preset in host board; do
  echo "== $preset"
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset"
  ctest --preset "$preset" || status=1
done
exit $status
