#!/usr/bin/python3
"""A MOUNT version 1 responder for the UMNT tests: answers every call to
program 100005 with an accepted, empty reply, over UDP and TCP on one port of
127.0.0.1, after registering both with the portmapper. Prints "ready" when it
listens."""
import socket
import struct
import sys
import threading

MOUNT_PROG, MOUNT_VERS = 100005, 1


def reply(call):
    xid, = struct.unpack(">I", call[:4])
    # REPLY, MSG_ACCEPTED, AUTH_NULL verifier, SUCCESS, no results.
    return struct.pack(">IIIIII", xid, 1, 0, 0, 0, 0)


def pmap_set(prot, port):
    # PMAPPROC_SET(prog, vers, prot, port), version 2, AUTH_NULL.
    call = struct.pack(">IIIIIIIIIIIIII", 1, 0, 2, 100000, 2, 1, 0, 0, 0, 0,
                       MOUNT_PROG, MOUNT_VERS, prot, port)
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as s:
        s.settimeout(5)
        s.sendto(call, ("127.0.0.1", 111))
        answer = s.recv(512)
    if struct.unpack(">I", answer[-4:])[0] != 1:
        sys.exit("portmapper refused the registration")


def serve_udp(sock):
    while True:
        call, peer = sock.recvfrom(65536)
        sock.sendto(reply(call), peer)


def serve_tcp_client(conn):
    with conn:
        while True:
            header = conn.recv(4, socket.MSG_WAITALL)
            if len(header) < 4:
                return
            length = struct.unpack(">I", header)[0] & 0x7FFFFFFF
            call = conn.recv(length, socket.MSG_WAITALL)
            answer = reply(call)
            conn.sendall(struct.pack(">I", 0x80000000 | len(answer)) + answer)


def serve_tcp(sock):
    while True:
        conn, _ = sock.accept()
        threading.Thread(target=serve_tcp_client, args=(conn,), daemon=True).start()


def main():
    port = int(sys.argv[1])
    udp = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    udp.bind(("127.0.0.1", port))
    tcp = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
    tcp.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    tcp.bind(("127.0.0.1", port))
    tcp.listen(8)
    pmap_set(17, port)
    pmap_set(6, port)
    threading.Thread(target=serve_udp, args=(udp,), daemon=True).start()
    print("ready", flush=True)
    serve_tcp(tcp)


main()
