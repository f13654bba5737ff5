#!/usr/bin/env python3
"""Sends what the tracker's peers on the LAN and beside it send:
  send.py unix PATH TEXT                  TEXT as one datagram to a unix socket
  send.py frame IFACE HEX...              Ethernet frames as they stand, in order
  send.py dhcp IFACE TYPE MAC [IP [NAME]] a DHCP client message of TYPE (1 discover, 3 request)
                                          from 0.0.0.0:68, MAC its client identifier
  send.py macs IFACE FIRST COUNT          one broadcast frame from each of COUNT source MACs
                                          02:00:00:00:00:00 + FIRST, FIRST+1, ... as fast as it can
  send.py dgram unix|udp|netlink TO HEX N the bytes HEX as one datagram, N times as fast as it can, to the
                                          unix socket path, UDP ADDR:PORT or routing netlink port id TO"""
import socket
import struct
import sys

kind, args = sys.argv[1], sys.argv[2:]
if kind == "unix":
    socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM).sendto(args[1].encode(), args[0])
elif kind == "dgram":
    family, to, data, count = args[0], args[1], bytes.fromhex(args[2]), int(args[3])
    if family == "udp":
        s, to = socket.socket(socket.AF_INET, socket.SOCK_DGRAM), (to.split(":")[0], int(to.split(":")[1]))
    elif family == "netlink":
        s, to = socket.socket(socket.AF_NETLINK, socket.SOCK_RAW, socket.NETLINK_ROUTE), (int(to), 0)
    else:
        s = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
    s.setblocking(False)
    for _ in range(count):
        try:
            s.sendto(data, to)
        except BlockingIOError:  # a full receive queue drops it, as the kernel would
            pass
elif kind == "frame":
    s = socket.socket(socket.AF_PACKET, socket.SOCK_RAW)
    s.bind((args[0], 0))
    for frame in args[1:]:
        s.send(bytes.fromhex(frame))
elif kind == "macs":
    s = socket.socket(socket.AF_PACKET, socket.SOCK_RAW)
    s.bind((args[0], 0))
    first, count = int(args[1]), int(args[2])
    for i in range(first, first + count):
        # 0x88b5 is the local experimental EtherType: the bridge learns the
        # source, and no protocol stack on the far side answers.
        s.send(b"\xff" * 6 + bytes([2, 0]) + i.to_bytes(4, "big") + b"\x88\xb5" + bytes(46))
elif kind == "dhcp":
    mac = bytes.fromhex(args[2].replace(":", ""))
    opts = bytes([53, 1, int(args[1]), 61, 7, 1]) + mac
    if len(args) > 3:
        opts += bytes([50, 4]) + socket.inet_aton(args[3])
    if len(args) > 4:
        opts += bytes([12, len(args[4])]) + args[4].encode()
    message = struct.pack("!BBBBI20x16s192x4s", 1, 1, 6, 0, 1, mac, bytes([99, 130, 83, 99])) + opts + b"\xff"
    s = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    s.setsockopt(socket.SOL_SOCKET, socket.SO_BROADCAST, 1)
    s.setsockopt(socket.SOL_SOCKET, socket.SO_BINDTODEVICE, args[0].encode())
    s.bind(("0.0.0.0", 68))
    s.sendto(message.ljust(300, b"\0"), ("255.255.255.255", 67))
else:
    sys.exit(__doc__)
