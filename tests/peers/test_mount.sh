#!/usr/bin/env bash
# Real mounts in a mount namespace of their own: images made by Debian's tools
# on loop devices, the real /proc/filesystems, /proc/partitions and
# /proc/mounts. $1 is the unit test program; on the board $DVR_EMULATOR
# (qemu-ppc-static) runs it.
#   A: GPT, p1 empty, p2 ext2, p3 ext3, p4 ext4
#   B: GPT, p1..p8 empty, p9 ext2 (a digit only the automatic road tries)
#   C: xfs, D: btrfs, both without partition table
# This kernel has no partition table parser: losetup -P finds nothing, so
# partx adds the partitions; without udev the nodes are made under $work/dev.
set -euo pipefail

program=$1
if [ -z "${DVR_MOUNT_NAMESPACE:-}" ]; then
  [ "$(id -u)" -eq 0 ] || { echo "skipped: loop devices and mounts need root"; exit 77; }
  for tool in losetup partx sfdisk mkfs.ext2 mkfs.xfs mkfs.btrfs; do
    command -v $tool >/dev/null || { echo "skipped: $tool is not installed"; exit 77; }
  done
  losetup -f >/dev/null 2>&1 || { echo "skipped: no free loop device"; exit 77; }
  unshare -m true 2>/dev/null || { echo "skipped: no mount namespaces here"; exit 77; }
  DVR_MOUNT_NAMESPACE=1 exec unshare -m --propagation private bash "$0" "$@"
fi

work=$(mktemp -d)
mount -t tmpfs dvr-work "$work"
cleanup() {
  for image in "$work"/img/*; do
    for l in $(losetup -j "$image" -O NAME -n 2>/dev/null); do losetup -d "$l" || true; done
  done
  umount -R -l "$work" 2>/dev/null || true
  rmdir "$work" 2>/dev/null || true
}
trap cleanup EXIT
mkdir -p "$work/dev" "$work/img"

# Attaches an image and makes nodes for it and its partitions; prints the
# whole disk's node.
attach() {
  local loop name part
  loop=$(losetup -f -P --show "$1")
  name=${loop#/dev/}
  if [ -n "${2:-}" ] && ! grep -q " ${name}p1\$" /proc/partitions; then
    partx -a "$loop"
  fi
  for part in /sys/class/block/"$name" /sys/class/block/"$name"p*; do
    [ -e "$part/dev" ] || continue
    IFS=: read -r maj min <"$part/dev"
    mknod "$work/dev/${part##*/}" b "$maj" "$min"
  done
  echo "$work/dev/$name"
}

truncate -s 64M "$work/img/a" "$work/img/b"
printf 'label: gpt\n,8M\n,8M\n,8M\n,\n' | sfdisk -q "$work/img/a"
printf 'label: gpt\n,1M\n,1M\n,1M\n,1M\n,1M\n,1M\n,1M\n,1M\n,\n' | sfdisk -q "$work/img/b"
truncate -s 300M "$work/img/c"
truncate -s 128M "$work/img/d"
a=$(attach "$work/img/a" parts)
b=$(attach "$work/img/b" parts)
mkfs.ext2 -q -F "${a}p2"
mkfs.ext3 -q -F "${a}p3"
mkfs.ext4 -q -F "${a}p4"
mkfs.ext2 -q -F "${b}p9"
mkfs.xfs -q -f "$work/img/c"
mkfs.btrfs -q -f "$work/img/d" >/dev/null
c=$(attach "$work/img/c")
d=$(attach "$work/img/d")

export DVR_MOUNT_WORK=$work DVR_DISK_A=$a DVR_DISK_B=$b DVR_DISK_C=$c DVR_DISK_D=$d
${DVR_EMULATOR:-} "$program" --gtest_filter='Cases_peers.mount_peer'

# A stand-in for /bin/mount, bound over it in this namespace only, records
# the NFS mount command line.
cat >"$work/mount-stand-in" <<'SH'
#!/bin/sh
printf '%s\n' "$0" "$@" >"$DVR_MOUNT_ARGS"
exit 32
SH
chmod +x "$work/mount-stand-in"
mount --bind "$work/mount-stand-in" "$(readlink -f /bin/mount)"
DVR_MOUNT_ARGS=$work/mount.args \
  ${DVR_EMULATOR:-} "$program" --gtest_filter='Cases_peers.mount_stand_in'
