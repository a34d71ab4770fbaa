#!/usr/bin/env bash
# Disk statistics, the ID file and the trial mount of a rewritable disc on
# real file systems: loop devices over image files, named as the recorder names its disks in a /dev of a private
# mount namespace (the machine's own /dev and /var stay untouched). $1 is the
# unit test program; on the board $DVR_EMULATOR (qemu-ppc-static) runs it.
set -euo pipefail

program=$1
if [ -z "${DVR_STORAGE_NAMESPACE:-}" ]; then
  [ "$(id -u)" -eq 0 ] || { echo "skipped: loop devices and mounts need root"; exit 77; }
  for tool in losetup mkfs.ext2 mkfs.ext3 unshare; do
    command -v $tool >/dev/null || { echo "skipped: $tool is not installed"; exit 77; }
  done
  [ -e /dev/loop-control ] || { echo "skipped: no loop devices here"; exit 77; }
  unshare -m true 2>/dev/null || { echo "skipped: no mount namespaces here"; exit 77; }
  DVR_STORAGE_NAMESPACE=1 exec unshare -m bash "$0" "$@"
fi

mount --make-rprivate /
work=$(mktemp -d)
loops=()
cleanup() {
  umount "$work/mnt/hdb" 2>/dev/null || true
  for loop in "${loops[@]}"; do losetup -d "$loop" || true; done
  rm -rf "$work"
}
trap cleanup EXIT

attach() { # image size, file system or none
  truncate -s "$2" "$work/$1.img"
  [ "$3" = none ] || "mkfs.$3" -q -F "$work/$1.img" >/dev/null
  loop=$(losetup -f --show "$work/$1.img")
  loops+=("$loop")
}
# The statfs figures as stat prints them (type in hex, block size, blocks,
# free blocks), then total and free bytes.
statfs_of() {
  local type size blocks free
  read -r type size blocks free <<<"$(stat -f -c '%t %S %b %f' "$1")"
  echo "$type $size $blocks $free $((blocks * size)) $((free * size))"
}

attach a 8M ext2 && loop_a=$loop
attach b 6M ext3 && loop_b=$loop
attach c 4M none && loop_c=$loop
attach e 5M ext2 && loop_e=$loop
mkdir -p "$work/ref" "$work/mnt/hdb" "$work/var"
mount "$loop_a" "$work/ref" && ref_a=$(statfs_of "$work/ref") && umount "$work/ref"
# The disc: its whole file system in KB, free blocks included.
mount "$loop_e" "$work/ref" && ref_e=$(stat -f -c '%b * %S / 1024' "$work/ref") && umount "$work/ref"

# The namespace's own /dev: the character nodes programs need, the loop nodes,
# and the disks' names on the loop devices (md0 on the same one as hda).
mount -t tmpfs dvr-dev /dev
mknod -m 666 /dev/null c 1 3 && mknod -m 666 /dev/zero c 1 5 && mknod -m 444 /dev/urandom c 1 9
node() { mknod "$1" b "$((0x$(stat -c %t "$2")))" "$((0x$(stat -c %T "$2")))"; }
for loop in "${loops[@]}"; do
  mknod "$loop" b 7 "${loop#/dev/loop}"
done
node /dev/scd0 "$loop_e"
node /dev/hda "$loop_a" && node /dev/md0 "$loop_a" && node /dev/hdb "$loop_b" && node /dev/hdc "$loop_c"
mount --bind "$work/var" /var
mount -t ext3 /dev/hdb "$work/mnt/hdb"
ref_b=$(statfs_of "$work/mnt/hdb")

DVR_STORAGE_PEER=$work DVR_STORAGE_REF_A=$ref_a DVR_STORAGE_REF_B=$ref_b \
  ${DVR_EMULATOR:-} "$program" --gtest_filter='Cases_peers.storage_peer'

# A rewritable DVD in an optical drive: the fake drive answers on /dev/sg0,
# the trial mounts take /dev/scd0 from the kernel.
DVR_DISC_PEER_KB=$((ref_e)) ${DVR_EMULATOR:-} "$program" --gtest_filter='Cases_disc.disc_peer'
