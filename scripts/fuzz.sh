#!/usr/bin/env bash
# Builds the fuzzers with clang and libFuzzer (the `fuzz` preset) and runs
# each for a bounded number of inputs: ./scripts/fuzz.sh [runs]
set -euo pipefail
cd "$(dirname "$0")/.."
runs=${1:-200000}

need=()
for p in clang libclang-rt-14-dev; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || need+=("$p")
done
if [ ${#need[@]} -gt 0 ]; then
  sudo=""; [ "$(id -u)" -eq 0 ] || sudo="sudo"
  $sudo apt-get update -qq && DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${need[@]}"
fi
./scripts/install-deps.sh
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz

out=build/fuzz/runs
mkdir -p "$out"
for target in dns_reply media_headers text_extract http_answer net_text mount_table \
  proc_partitions ide_text usb_modem_text dvd_replies; do
  corpus="$out/corpus_$target"
  mkdir -p "$corpus"
  seeds=()
  [ "$target" = media_headers ] && seeds=(tests/data/media)
  [ "$target" = ide_text ] && seeds=(tests/data/storage/fuzz_seeds)
  [ "$target" = usb_modem_text ] && seeds=(tests/data/modem)
  echo "== fuzz_$target, $runs runs"
  # The library logs what it finds odd; the log is not the fuzzer's business.
  build/fuzz/fuzz/fuzz_$target -runs="$runs" -seed=1 "$corpus" "${seeds[@]}" >"$out/$target.log" 2>&1 \
    || { tail -40 "$out/$target.log"; exit 1; }
  grep -E '^#[0-9]+' "$out/$target.log" | tail -1
  grep -E '^Done' "$out/$target.log"
done
