#!/usr/bin/env bash
# Builds the bench preset and runs the codec and digest benchmarks beside
# OpenSSL and coreutils. Google Benchmark and OpenSSL's headers are needed for
# this only, so they are installed here rather than by install-deps.sh.
#
# OpenSSL's SHA-1 runs its plain integer code: OPENSSL_ia32cap clears the SSSE3
# bit (which gates its SSSE3, AVX, AVX2 and SHA-extension paths), the AVX bit,
# and the SHA and AVX2 bits of the extended word. Its MD5 has only integer code.
# Extra arguments go to the benchmark program (e.g. --benchmark_filter=Sha1).
set -euo pipefail
cd "$(dirname "$0")/.."

missing=()
for p in libbenchmark-dev libssl-dev cmake ninja-build g++ coreutils; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  sudo=""
  [ "$(id -u)" -eq 0 ] || sudo="sudo"
  export DEBIAN_FRONTEND=noninteractive
  $sudo apt-get update -qq
  $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

cmake --preset bench >/dev/null
if [ "${1:-}" = http ]; then
  # A 64 MiB body from nginx on 127.0.0.1:80 in a network namespace of its own,
  # fetched by the command client and by curl: ./scripts/bench.sh http
  cmake --build --preset bench --target dvr_bench_http
  exec unshare -n bash -c '
    set -euo pipefail
    ip link set lo up
    work=$(mktemp -d); trap "kill \$(cat $work/nginx.pid) 2>/dev/null; rm -rf $work" EXIT
    head -c $((64 << 20)) /dev/urandom >"$work/big.bin"
    printf "user root; pid %s/nginx.pid; error_log %s/error; events {}\n" "$work" "$work" >"$work/nginx.conf"
    printf "http { access_log off; client_body_temp_path %s/body; proxy_temp_path %s/proxy;\n" "$work" "$work" >>"$work/nginx.conf"
    printf " fastcgi_temp_path %s/f; uwsgi_temp_path %s/u; scgi_temp_path %s/s;\n" "$work" "$work" "$work" >>"$work/nginx.conf"
    printf " server { listen 127.0.0.1:80; root %s; } }\n" "$work" >>"$work/nginx.conf"
    nginx -c "$work/nginx.conf"
    build/bench/bench/dvr_bench_http 127.0.0.1/big.bin $((64 << 20)) 7'
fi
cmake --build --preset bench --target dvr_bench_codecs
export OPENSSL_ia32cap="${OPENSSL_ia32cap-~0x1000020000000000:~0x20000020}"
echo "OPENSSL_ia32cap=$OPENSSL_ia32cap"
exec build/bench/bench/dvr_bench_codecs --benchmark_repetitions=5 --benchmark_report_aggregates_only=true "$@"
