#!/usr/bin/env bash
# Installs, from Debian's packages, everything the two targets, the tests and the
# interop peers need. Does nothing when every package is already there.
set -euo pipefail

packages=(
  cmake ninja-build g++ make pkg-config
  g++-powerpc-linux-gnu qemu-user-static
  googletest libgtest-dev libgmock-dev libbenchmark-dev
  iproute2 net-tools util-linux procps coreutils
  dnsmasq-base ccache clang-format python3 git
  file groff-base
  apache2 apache2-utils nginx python3-gi gir1.2-gst-rtsp-server-1.0
  gstreamer1.0-plugins-base gstreamer1.0-plugins-good curl
  libtirpc-dev dpkg-dev xfsprogs btrfs-progs fdisk rpcbind tcpdump tshark
  qemu-system-x86 xorriso dosfstools e2fsprogs cpio xz-utils
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "installing: ${missing[*]}"
sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
