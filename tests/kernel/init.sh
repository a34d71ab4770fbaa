#!/bin/busybox sh
# The guest's init: loads the drivers one bus after the other and binds the
# drives in order, so that host, generic, disk and optical numbers come out
# the same on every boot; runs the guest program with its transcript on the
# second serial port, and powers off.
/bin/busybox --install -s /bin
export PATH=/bin
mount -t proc proc /proc
mount -t sysfs sysfs /sys
mount -t devtmpfs devtmpfs /dev

# Waits, for at most 60 s each, until each path exists.
wait_for() {
  for path in "$@"; do
    n=0
    while [ ! -e "$path" ]; do
      n=$((n + 1))
      [ $n -le 600 ] || { echo "init: $path never came" >/dev/ttyS1; break; }
      sleep 0.1
    done
  done
}

# Binds the SCSI devices that have no driver yet, in the order of their
# addresses: disks to sd, optical drives to sr. The drivers probe in parallel
# when left to themselves, and the disk letters then change from boot to boot.
bind_new() {
  for d in $(ls /sys/bus/scsi/devices | grep '^[0-9]' | sort -t: -n -k1,1 -k2,2 -k3,3 -k4,4); do
    [ -e /sys/bus/scsi/devices/$d/driver ] && continue
    case $(cat /sys/bus/scsi/devices/$d/type) in
      0) echo $d >/sys/bus/scsi/drivers/sd/bind ;;
      5) echo $d >/sys/bus/scsi/drivers/sr/bind ;;
    esac
  done
}

for m in crc32c_generic ext4 vfat nls_cp437 nls_ascii nls_utf8 isofs scsi_mod; do
  modprobe $m
done
echo 0 >/sys/bus/scsi/drivers_autoprobe
for m in sg sd_mod sr_mod virtio_pci virtio_scsi; do
  modprobe $m
done
wait_for /dev/sg4
bind_new
modprobe xhci_pci
wait_for /sys/bus/usb/devices/2-1 /sys/bus/usb/devices/2-2
modprobe usb-storage delay_use=0
wait_for /dev/sg6
bind_new

/bin/guest_checks >/dev/ttyS1 2>&1
poweroff -f
