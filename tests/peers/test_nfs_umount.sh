#!/usr/bin/env bash
# The UMNT call of the NFS unmount, in network and mount namespaces of its own:
# Debian's rpcbind on 127.0.0.1:111, a MOUNT version 1 responder (nfs/) on
# 127.0.0.1:20048, nothing on 127.0.0.2 (a dead server). tcpdump records the
# calls and tshark, an independent decoder, checks each one's program,
# version, procedure, credentials and path. The dead server's calls go out
# over UDP (its TCP connection is refused) and are refused in turn. $1 is the unit test program; on
# the board $DVR_EMULATOR (qemu-ppc-static) runs it.
set -euo pipefail

program=$1
here=$(cd "$(dirname "$0")" && pwd)
if [ -z "${DVR_NFS_NAMESPACE:-}" ]; then
  [ "$(id -u)" -eq 0 ] || { echo "skipped: namespaces need root"; exit 77; }
  for tool in rpcbind tcpdump tshark /usr/bin/python3; do
    command -v $tool >/dev/null || { echo "skipped: $tool is not installed"; exit 77; }
  done
  unshare -n -m true 2>/dev/null || { echo "skipped: no namespaces here"; exit 77; }
  DVR_NFS_NAMESPACE=1 exec unshare -n -m --propagation private bash "$0" "$@"
fi

ip link set lo up
work=$(mktemp -d)
# rpcbind keeps its socket and state under /run: a private one here.
mount -t tmpfs dvr-run /run
pids=()
cleanup() {
  for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done
  wait 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT

port=20048
# rpcbind goes to the background once it listens; the one listener on 111
# of this network namespace is it.
rpcbind -i
pids+=("$(ss -Hlnup 'sport = :111' | grep -o 'pid=[0-9]*' | head -n 1 | cut -d= -f2)")

# tcpdump says "listening on" once it captures.
mkfifo "$work/tcpdump.err"
tcpdump -Z root --immediate-mode -i lo -U -w "$work/umnt.pcap" 'port 111 or port 20048' 2>"$work/tcpdump.err" &
tcpdump_pid=$!
pids+=("$tcpdump_pid")
exec 3<"$work/tcpdump.err"
read -r line <&3
case $line in *"listening on"*) ;; *) echo "tcpdump: $line"; exit 1 ;; esac

coproc responder { exec /usr/bin/python3 "$here/nfs/mountd_v1.py" "$port"; }
pids+=("$responder_PID")
read -r ready <&"${responder[0]}"
[ "$ready" = ready ] || { echo "responder did not start"; exit 1; }

DVR_NFS_PEER=$port ${DVR_EMULATOR:-} "$program" --gtest_filter='Cases_peers.nfs_peer'

kill -TERM "$tcpdump_pid"
cat <&3 >/dev/null
wait "$tcpdump_pid" || true
# Every UMNT call on the wire, decoded by tshark: transport, program,
# version, procedure, credential flavour (1: AUTH_UNIX), path.
tshark -r "$work/umnt.pcap" -d tcp.port==$port,rpc -d udp.port==$port,rpc \
  -Y 'mount && rpc.msgtyp == 0' -E occurrence=f \
  -T fields -e frame.protocols -e rpc.program -e rpc.programversion -e rpc.procedure \
  -e rpc.auth.flavor -e mount.path 2>/dev/null |
  sed -E 's/^[^\t]*:(tcp|udp):[^\t]*/\1/' >"$work/calls.txt"
cat >"$work/expected.txt" <<'TXT'
tcp	100005	1	3	1	/export/tcp
udp	100005	1	3	1	/export/udp
tcp	100005	1	3	1	/export/addr
udp	100005	1	3	1	/export/portmapper
udp	100005	1	3	1	/export/notcp
udp	100005	1	3	1	/export/dead
udp	100005	1	3	1	/export/dead
TXT
diff -u "$work/expected.txt" "$work/calls.txt"
echo "UMNT calls on the wire: as expected"
