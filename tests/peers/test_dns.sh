#!/usr/bin/env bash
# DNS lookups on port 53, in a network namespace of their own: the test
# program's silent name server on 127.0.0.1, and dnsmasq on 127.0.0.3 with the
# records below. $1 is the unit test program; on the board $DVR_EMULATOR
# (qemu-ppc-static) runs it, a host process in the namespace.
set -euo pipefail

program=$1
if [ -z "${DVR_DNS_NAMESPACE:-}" ]; then
  [ "$(id -u)" -eq 0 ] || { echo "skipped: a network namespace needs root"; exit 77; }
  command -v dnsmasq >/dev/null || { echo "skipped: dnsmasq is not installed"; exit 77; }
  unshare -n true 2>/dev/null || { echo "skipped: no network namespaces here"; exit 77; }
  # A pid namespace of its own too: if the script is killed, dnsmasq dies with it.
  DVR_DNS_NAMESPACE=1 exec unshare -n -p -f --kill-child --mount-proc bash "$0" "$@"
fi

ip link set lo up
work=$(mktemp -d)
trap '[ -s "$work/pid" ] && kill "$(cat "$work/pid")"; rm -rf "$work"' EXIT

cat >"$work/dnsmasq.conf" <<CONF
no-resolv
no-hosts
no-poll
bind-interfaces
listen-address=127.0.0.3
port=53
user=root
pid-file=$work/pid
local=/dvr.test/
host-record=www.dvr.test,10.1.2.3
host-record=multi.dvr.test,10.1.2.4
host-record=multi.dvr.test,10.1.2.5
cname=alias.dvr.test,www.dvr.test
mx-host=dvr.test,mail.dvr.test,20
mx-host=dvr.test,backup.dvr.test,10
host-record=mail.dvr.test,10.1.2.25
host-record=backup.dvr.test,10.1.2.26
host-record=six.dvr.test,10.1.2.6
mx-host=six.dvr.test,mx6.dvr.test,5
host-record=mx6.dvr.test,10.1.2.60,fd00::60
CONF
# dnsmasq returns once it listens, and goes on in the background.
dnsmasq --conf-file="$work/dnsmasq.conf" --log-facility=-

DVR_DNS_PEERS=127.0.0.3 ${DVR_EMULATOR:-} "$program" --gtest_filter='Cases_dns.peer'
