#!/usr/bin/env bash
# Network queries, unit identity and link-level broadcasts against the real
# kernel, in network, mount and host-name namespaces of their own: veth pairs
# with addresses, hardware addresses and MTUs, neighbours and routes, and
# /etc seen through an overlay whose changes vanish with the namespace. $1 is
# the unit test program; on the board $DVR_EMULATOR (qemu-ppc-static) runs it.
set -euo pipefail

program=$1
if [ -z "${DVR_NET_NAMESPACE:-}" ]; then
  [ "$(id -u)" -eq 0 ] || { echo "skipped: namespaces need root"; exit 77; }
  [ -x /sbin/ifconfig ] || { echo "skipped: /sbin/ifconfig (net-tools) is not installed"; exit 77; }
  unshare -n -m -u true 2>/dev/null || { echo "skipped: no namespaces here"; exit 77; }
  DVR_NET_NAMESPACE=1 exec unshare -n -m -u bash "$0" "$@"
fi

work=$(mktemp -d)
trap 'umount /etc 2>/dev/null; rm -rf "$work"' EXIT
mkdir "$work/upper" "$work/scratch"
mount -t overlay overlay -o "lowerdir=/etc,upperdir=$work/upper,workdir=$work/scratch" /etc
mkdir -p /etc/network
printf 'auto lo\niface lo inet loopback\n' >/etc/network/interfaces
printf '# nameserver 10.0.0.53\nnameserver dns.example.invalid\nnameserver\t10.0.0.54\n' \
  >/etc/resolv.conf
rm -f /etc/Model /etc/Proj /etc/Note /etc/Port

# No IPv6 chatter on the links the broadcast tests listen to.
sysctl -qw net.ipv6.conf.all.disable_ipv6=1 net.ipv6.conf.default.disable_ipv6=1
ip link set lo up
pair() { # name peer mac mtu
  ip link add "$1" address "$3" mtu "$4" type veth peer name "$2"
  ip link set "$1" up
  ip link set "$2" mtu "$4" up
}
pair eth0 peer0 02:aa:bb:cc:dd:01 1600
pair wan.5-x wanpeer 0a:1b:2c:3d:4e:5f 9000
pair bare0 bare1 02:00:00:00:00:b0 1500
pair pp0 pp1 02:00:00:00:00:90 1500
ip addr add 10.1.0.5/24 broadcast 10.1.0.255 dev eth0
ip addr add 192.168.7.9/16 broadcast 192.168.255.255 dev wan.5-x
ip route add default via 192.168.7.1 dev wan.5-x
ip neigh add 10.1.0.77 lladdr aa:bb:cc:dd:ee:ff dev eth0 nud permanent
ip neigh add 10.1.0.78 dev eth0 nud incomplete

run() { # table filter
  DVR_NET_TABLE=$1 ${DVR_EMULATOR:-} "$program" --gtest_filter="$2"
}
run lan 'NetPeer.*:Cases_netpeer.lan'

# A point-to-point link carries the default route, with no gateway.
ip route del default
ip addr add 10.9.0.1 peer 10.9.0.2 dev pp0
ip route add default dev pp0
printf 'nameserver 10.0.0.53\n' >/etc/resolv.conf
run p2p 'Cases_netpeer.p2p'

# No default route; the first name-server line has no address.
ip route del default
printf 'nameserver\nnameserver 10.0.0.60\n' >/etc/resolv.conf
run bare 'Cases_netpeer.bare'
