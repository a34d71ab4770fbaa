"""Peers for the command client tests, by the first argument:
  script ADDR  answers what real servers don't do on demand, by the request's path
  rtsp ADDR    GStreamer's RTSP server with a test picture on /test (port 80)
  relay ADDR UPSTREAM  passes connections on to UPSTREAM:80, taking the blank
               out of "Accept : " in the request head, which Apache (AH03452)
               and nginx refuse whatever their settings; nothing else changes
Each prints "ready" once it listens."""
import socket
import sys
import threading


def pump(src, dst):
    while True:
        chunk = src.recv(65536)
        if not chunk:
            break
        dst.sendall(chunk)
    try:
        dst.shutdown(socket.SHUT_WR)
    except OSError:
        pass


def relay_one(conn, upstream):
    out = socket.create_connection((upstream, 80))
    head = b""
    while b"\r\n\r\n" not in head:
        chunk = conn.recv(65536)
        if not chunk:
            break
        head += chunk
    out.sendall(head.replace(b"\r\nAccept : ", b"\r\nAccept: ", 1))
    threading.Thread(target=pump, args=(conn, out), daemon=True).start()
    pump(out, conn)
    conn.close()


def relay(addr, upstream):
    server = socket.create_server((addr, 80))
    print("ready", flush=True)
    while True:
        conn, _ = server.accept()
        threading.Thread(target=relay_one, args=(conn, upstream), daemon=True).start()


def script(addr):
    server = socket.create_server((addr, 80))
    print("ready", flush=True)
    while True:
        conn, _ = server.accept()
        request = b""
        while b"\r\n\r\n" not in request:
            chunk = conn.recv(4096)
            if not chunk:
                break
            request += chunk
        path = request.split(b" ")[1] if request.count(b" ") else b""
        if path == b"/split":  # the end mark straddles the client's 4096-byte blocks
            head = b"HTTP/1.0 200 OK\r\nX-Pad: "
            conn.sendall(head + b"p" * (4096 - len(head) - 3) + b"\r\n\r")
            conn.sendall(b"\nbody")
        elif path == b"/bare":
            conn.sendall(b"HTTP/1.0 200 OK\nContent-Length: 5\n\nhello")
        elif path == b"/several":
            conn.sendall(b"HTTP/1.1 200 OK\r\nContent-Length: 3\r\ncontent-length: 10\r\n\r\n"
                         b"0123456789")
        elif path == b"/x":
            conn.sendall(b"HTTP/1.0 200 OK\r\n\r\nsecond")
            conn.close()
            continue
        if path not in (b"/close", b"/split"):  # the others stay open until the client closes
            while conn.recv(4096):
                pass
        conn.close()


def rtsp(addr):
    import gi
    gi.require_version("Gst", "1.0")
    gi.require_version("GstRtspServer", "1.0")
    from gi.repository import GLib, Gst, GstRtspServer
    Gst.init(None)
    server = GstRtspServer.RTSPServer()
    server.set_address(addr)
    server.set_service("80")
    factory = GstRtspServer.RTSPMediaFactory()
    factory.set_launch("( videotestsrc ! video/x-raw,width=64,height=48 ! rtpvrawpay name=pay0 )")
    factory.set_shared(True)
    server.get_mount_points().add_factory("/test", factory)
    server.attach(None)
    print("ready", flush=True)
    GLib.MainLoop().run()


{"script": script, "rtsp": rtsp, "relay": relay}[sys.argv[1]](*sys.argv[2:])
