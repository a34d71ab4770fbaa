#!/usr/bin/env bash
# The real-kernel lane: boots Debian's amd64 kernel under qemu-system-x86_64
# (TCG) with emulated drives, runs the guest program ($1, static) as the job of
# a busybox init, and compares what it prints over the second serial port with
# expected.txt. $2 is the work folder (kept: the fetched packages and the
# unpacked kernel are reused by later runs). Fails loudly when anything it
# needs is missing; with DVR_KERNEL_LANE_UPDATE=1 rewrites expected.txt.
set -euo pipefail

program=$(realpath "$1")
work=$2
here=$(cd "$(dirname "$0")" && pwd)
fail() { echo "kernel lane: $*" >&2; exit 1; }

for tool in qemu-system-x86_64 apt-get apt-cache dpkg-deb cpio sfdisk mkfs.ext4 mkfs.ext2 mkfs.vfat \
  xorriso xz timeout; do
  command -v $tool >/dev/null || fail "$tool is missing: run scripts/install-deps.sh"
done
[ -x "$program" ] || fail "no guest program at $1"
mkdir -p "$work/debs"
work=$(realpath "$work")

# A Debian package into the cache: from apt's own cache if it is there, else
# downloaded (once more after refreshing the lists when that fails).
fetch() {
  local name=$1 debs
  debs=("$work/debs/${name}"_*.deb)
  [ -e "${debs[0]}" ] && { echo "${debs[0]}"; return; }
  cp /var/cache/apt/archives/"${name}"_*_amd64.deb "$work/debs/" 2>/dev/null ||
    (cd "$work/debs" && { apt-get download -q "$name" || { apt-get update -qq && apt-get download -q "$name"; }; } >&2) ||
    fail "could not fetch $name"
  debs=("$work/debs/${name}"_*.deb)
  echo "${debs[0]}"
}

kernels=("$work"/debs/linux-image-[0-9]*.deb)
kernel_pkg=$(basename "${kernels[0]}" | sed 's/_.*//')
if [ ! -e "${kernels[0]}" ]; then
  kernel_pkg=$(apt-cache depends linux-image-amd64 2>/dev/null | awk '/Depends: linux-image-[0-9]/ && !n++ {print $2}')
  [ -n "$kernel_pkg" ] || { apt-get update -qq; kernel_pkg=$(apt-cache depends linux-image-amd64 |
    awk '/Depends: linux-image-[0-9]/ && !n++ {print $2}'); }
  [ -n "$kernel_pkg" ] || fail "no linux-image package for amd64 is known to apt"
fi
root=$work/unpacked
version=${kernel_pkg#linux-image-}
if [ ! -e "$root/vmlinux" ]; then
  rm -rf "$root" && mkdir -p "$root"
  dpkg-deb -x "$(fetch "$kernel_pkg")" "$root"
  dpkg-deb -x "$(fetch busybox-static)" "$root"
  "$root/bin/busybox" depmod -b "$root" "$version"
  # QEMU starts the uncompressed image at its PVH entry, which saves the slow
  # decompression under TCG: the xz stream inside the bzImage, unpacked.
  image=$root/boot/vmlinuz-$version
  offset=$(LC_ALL=C grep -obUaP '\xFD7zXZ\x00' "$image" | cut -d: -f1 | sed -n 1p)
  [ -n "$offset" ] || fail "no xz stream in $image"
  # xz stops at the end of its stream, before the bzImage ends.
  { tail -c +$((offset + 1)) "$image" || true; } | xz -dc --single-stream >"$root/vmlinux.part"
  mv "$root/vmlinux.part" "$root/vmlinux"
fi

# The initramfs: busybox, the guest program, the modules with what they need.
rm -rf "$work/initramfs" "$work/run" && mkdir -p "$work/initramfs"/{bin,dev,proc,sys,var,mnt} "$work/run"
cp "$root/bin/busybox" "$work/initramfs/bin/"
cp "$program" "$work/initramfs/bin/guest_checks"
install -m 755 "$here/init.sh" "$work/initramfs/init"
moddir=lib/modules/$version
mkdir -p "$work/initramfs/$moddir"
cp "$root/$moddir"/modules.* "$work/initramfs/$moddir/"
modules="virtio_pci virtio_scsi sd_mod sr_mod sg isofs vfat ext4 crc32c_generic nls_cp437 nls_ascii
  nls_utf8 xhci_pci usb-storage"
for m in $modules; do
  line=$(grep -E "/${m//[-_]/[-_]}\.ko:" "$root/$moddir/modules.dep") || fail "no module $m in $kernel_pkg"
  for ko in ${line/:/}; do
    mkdir -p "$work/initramfs/$moddir/$(dirname "$ko")"
    cp "$root/$moddir/$ko" "$work/initramfs/$moddir/$ko"
  done
done
(cd "$work/initramfs" && find . | cpio -o -H newc --quiet) >"$work/run/initramfs.cpio"

# The media. Sparse files; the DVD image is a small ISO 9660 file system on
# 1 GiB, which QEMU's scsi-cd reports as a DVD-ROM, the CD image one of 20 MiB.
cd "$work/run"
truncate -s 64M disk0.img
printf 'label: dos\n2048,40960,83\n,,c\n' | sfdisk -q disk0.img
mkfs.ext4 -q -F -L ext4part -E offset=$((2048 * 512)) disk0.img 20M
mkfs.vfat -n VFATPART --offset 43008 disk0.img $(((131072 - 43008) / 2)) >/dev/null
truncate -s 32M disk1.img && mkfs.ext2 -q -F -L wholeext2 disk1.img
truncate -s 48M usb.img && mkfs.vfat -n USBDISK usb.img >/dev/null
mkdir -p iso && echo "recorder test disc" >iso/readme.txt
iso() { xorriso -as mkisofs -quiet -V "$1" -o "$2" iso 2>xorriso.log || { cat xorriso.log; fail "xorriso failed"; }; }
iso DVDVOL dvd.iso && truncate -s 1G dvd.iso
iso CDVOL cd.iso && truncate -s 20M cd.iso
cp --sparse=always cd.iso usbcd.iso

drive() { echo "if=none,id=$1,file=$2,format=raw${3:+,$3}"; }
timeout 240 qemu-system-x86_64 -nodefaults -M pc -accel tcg -m 512 -display none -no-reboot \
  -kernel "$root/vmlinux" -initrd initramfs.cpio \
  -append "console=ttyS0 loglevel=4 panic=-1" \
  -serial file:console.log -serial file:transcript.raw \
  -device virtio-scsi-pci,id=scsi0 \
  -drive "$(drive hd0 disk0.img)" -device scsi-hd,bus=scsi0.0,scsi-id=0,drive=hd0 \
  -drive "$(drive hd1 disk1.img)" -device scsi-hd,bus=scsi0.0,scsi-id=1,drive=hd1 \
  -drive "$(drive dvd dvd.iso media=cdrom,readonly=on)" -device scsi-cd,bus=scsi0.0,scsi-id=2,drive=dvd \
  -drive "$(drive cd cd.iso media=cdrom,readonly=on)" -device scsi-cd,bus=scsi0.0,scsi-id=3,drive=cd \
  -device scsi-cd,bus=scsi0.0,scsi-id=4 \
  -device qemu-xhci,id=xhci \
  -drive "$(drive usb usb.img)" -device usb-storage,bus=xhci.0,port=1,drive=usb \
  -device usb-bot,bus=xhci.0,port=2,id=bot \
  -drive "$(drive usbcd usbcd.iso media=cdrom,readonly=on)" -device scsi-cd,bus=bot.0,lun=0,drive=usbcd ||
  { tail -40 console.log >&2; fail "QEMU failed or ran out of time"; }

# Serial line ends, the source lines of log messages and the addresses some of
# them print (both move with every edit of the library) are taken out before
# the comparison.
tr -d '\r' <transcript.raw | sed -E 's/^([A-Za-z0-9_]+\.cpp),[0-9]+:/\1:/; s/0x[0-9a-f]{5,}/(address)/g' \
  >transcript.txt
grep -q '^== end$' transcript.txt || { tail -40 console.log >&2; fail "the guest program did not finish"; }
if [ "${DVR_KERNEL_LANE_UPDATE:-0}" = 1 ]; then
  cp transcript.txt "$here/expected.txt"
fi
diff -u "$here/expected.txt" transcript.txt || fail "the transcript differs from expected.txt"
echo "kernel lane: $(grep -c '^== ' transcript.txt) checks as expected"
