#!/usr/bin/env python3
"""A deliberately hostile device for the network tests. Prints "ready" once it listens.

  hostile_responder.py ssdp <own address> <mode> [<address>]   answers SSDP searches with a LOCATION
      whose HTTP server sends an endless body ("endless"), announces a huge one ("huge"), trickles one
      byte every half second ("trickle") or never answers ("silent"); or with a LOCATION at <address>,
      where nothing answers ("unreachable"); or answers each search only late, at +1.9 s, and again at
      +2.3 s ("late"); or repeats its answer every 0.2 s ("repeat"); or ("many") answers as <address>
      devices at once, each with a NAS description of its own, spread over the first second.
      Malformed SSDP replies are sent first.
  hostile_responder.py mdns <own address>               answers every multicast DNS query with
      malformed packets (pointer loops, cut records, lying counts) and a flood of them.
"""
import socket
import struct
import sys
import threading
import time

HTTP_PORT = 8300


def serve_http(server, mode):
    while True:
        connection, _ = server.accept()
        threading.Thread(target=answer_http, args=(connection, mode), daemon=True).start()


def answer_http(connection, mode):
    sent, requested = 0, False
    try:
        # The test's port check connects and sends nothing; only a request counts.
        request = connection.recv(4096)
        requested = bool(request)
        if not requested:
            return
        if mode == "silent":
            time.sleep(600)
        elif mode == "many":
            number = request.split(b" ")[1].split(b"/")[-1].split(b".")[0]
            connection.sendall(b"HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n<root><device><deviceType>"
                               b"urn:schemas-upnp-org:device:NAS:1</deviceType><friendlyName>NAS " + number +
                               b"</friendlyName></device></root>")
        elif mode in ("late", "repeat"):
            connection.sendall(b"HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n<root><device><deviceType>"
                               b"urn:schemas-upnp-org:device:Basic:1</deviceType><friendlyName>Chatty Box"
                               b"</friendlyName></device></root>")
        elif mode == "endless":
            connection.sendall(b"HTTP/1.1 200 OK\r\nContent-Type: text/xml\r\n\r\n<root><deviceType>")
            block = b"A" * 65536
            while True:
                connection.sendall(block)
                sent += len(block)
        elif mode == "huge":
            connection.sendall(b"HTTP/1.1 200 OK\r\nContent-Length: 1073741824\r\n\r\n")
            block = b"<x/>" * 16384
            while True:
                connection.sendall(block)
                sent += len(block)
        elif mode == "trickle":
            connection.sendall(b"HTTP/1.1 200 OK\r\nContent-Length: 100000\r\n\r\n")
            while True:
                connection.sendall(b"<")
                sent += 1
                time.sleep(0.5)
    except OSError:
        pass
    finally:
        if requested:
            print("http %s: connection ended after %d body bytes" % (mode, sent), flush=True)
        connection.close()


def answer(address, location, index=0):
    return ("HTTP/1.1 200 OK\r\nCACHE-CONTROL: max-age=120\r\nST: upnp:rootdevice\r\n"
            "USN: uuid:00000000-0000-0000-0000-%012d::upnp:rootdevice\r\nEXT:\r\n"
            "SERVER: Test/1.0 UPnP/1.1 Hostile/1.0\r\n"
            "LOCATION: http://%s:%d/%s\r\n\r\n" % (index, address, HTTP_PORT, location)).encode()


def send_later(sock, sender, replies, delays):
    """Sends replies[i] delays[i] seconds after the call."""
    start = time.monotonic()
    for reply, delay in zip(replies, delays):
        time.sleep(max(0.0, start + delay - time.monotonic()))
        try:
            sock.sendto(reply, sender)
        except OSError:
            return


def serve_ssdp(address, mode, other):
    server = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
    server.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    server.bind((address, HTTP_PORT))
    server.listen(64)
    threading.Thread(target=serve_http, args=(server, mode), daemon=True).start()
    location = other if mode == "unreachable" else address
    sock = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    sock.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    sock.bind(("", 1900))
    membership = socket.inet_aton("239.255.255.250") + socket.inet_aton(address)
    sock.setsockopt(socket.IPPROTO_IP, socket.IP_ADD_MEMBERSHIP, membership)
    print("ready", flush=True)
    while True:
        data, sender = sock.recvfrom(4096)
        if not data.startswith(b"M-SEARCH"):
            continue
        print("ssdp: search from %s:%d" % sender, flush=True)
        for junk in (b"\x00\xff garbage", b"HTTP/1.1 200 OK\r\nST: upnp:rootdevice\r\n\r\n",
                     b"HTTP/1.1 200 OK\r\nLOCATION: " + b"x" * 1400 + b"\r\n\r\n"):
            sock.sendto(junk, sender)
        reply = answer(location, "desc.xml")
        if mode == "many":
            count = int(other)
            replies = [answer(address, "dev/%d.xml" % i, i) for i in range(count)]
            delays = [i / count for i in range(count)]
        elif mode == "late":
            replies, delays = [reply, reply], [1.9, 2.3]
        elif mode == "repeat":
            replies, delays = [reply] * 100, [0.2 * i for i in range(100)]
        else:
            replies, delays = [reply], [0]
        threading.Thread(target=send_later, args=(sock, sender, replies, delays), daemon=True).start()


def malformed_answers():
    header = lambda an: struct.pack(">HHHHHH", 0, 0x8400, 0, an, 0, 0)
    loop = header(1) + b"\xc0\x0e\xc0\x0c" + struct.pack(">HHIH", 12, 1, 120, 0)
    cut = header(1) + b"\x04_smb\x04_tcp\x05local\x00" + struct.pack(">HHIH", 12, 1, 120, 40) + b"\x03abc"
    counts = struct.pack(">HHHHHH", 0, 0x8400, 0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF)
    ahead = header(1) + b"\xc0\x40" + struct.pack(">HHIH", 1, 1, 120, 4) + b"\x0a\x00\x00\x09"
    return [loop, cut, counts, ahead, b"\x00" * 11]


def serve_mdns(address):
    sock = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    sock.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    sock.bind(("", 5353))
    membership = socket.inet_aton("224.0.0.251") + socket.inet_aton(address)
    sock.setsockopt(socket.IPPROTO_IP, socket.IP_ADD_MEMBERSHIP, membership)
    print("ready", flush=True)
    while True:
        data, sender = sock.recvfrom(9000)
        print("mdns: query from %s:%d" % sender, flush=True)
        for _ in range(200):
            for packet in malformed_answers():
                sock.sendto(packet, sender)


def main():
    if sys.argv[1] == "ssdp":
        serve_ssdp(sys.argv[2], sys.argv[3], sys.argv[4] if len(sys.argv) > 4 else None)
    else:
        serve_mdns(sys.argv[2])


if __name__ == "__main__":
    main()
