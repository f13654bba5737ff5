#!/usr/bin/env python3
"""The bridge's limit of learnt forwarding entries, over rtnetlink:
  fdb_limit.py BRIDGE [MAX]   sets the limit to MAX (0: none) when given, then
                              prints "learned N max M" as the kernel tells
The attributes are numbered here because the uapi headers of Debian 12 stop
before them; kernels from 6.8 on know them."""
import os
import socket
import struct
import sys

RTM_NEWLINK, RTM_GETLINK, NLMSG_ERROR = 16, 18, 2
NLM_F_REQUEST, NLM_F_ACK = 1, 4
IFLA_LINKINFO, IFLA_INFO_KIND, IFLA_INFO_DATA = 18, 1, 2
IFLA_BR_FDB_N_LEARNED, IFLA_BR_FDB_MAX_LEARNED = 48, 49
NLA_F_NESTED = 0x8000


def attr(kind, payload):
    padded = payload + bytes(-len(payload) % 4)
    return struct.pack("=HH", 4 + len(payload), kind) + padded


def attrs(data):
    while len(data) >= 4:
        size, kind = struct.unpack_from("=HH", data)
        if size < 4:
            return
        yield kind & ~NLA_F_NESTED, data[4:size]
        data = data[(size + 3) & ~3:]


def talk(sock, kind, index, body=b""):
    payload = struct.pack("=BxHiII", socket.AF_UNSPEC, 0, index, 0, 0) + body
    sock.send(struct.pack("=IHHII", 16 + len(payload), kind, NLM_F_REQUEST | NLM_F_ACK, 1, 0) + payload)
    reply = sock.recv(65536)
    if struct.unpack_from("=H", reply, 4)[0] == NLMSG_ERROR and struct.unpack_from("=i", reply, 16)[0]:
        sys.exit("fdb_limit.py: " + os.strerror(-struct.unpack_from("=i", reply, 16)[0]))
    return reply


if len(sys.argv) not in (2, 3):
    sys.exit(__doc__)
try:
    index = socket.if_nametoindex(sys.argv[1])
except OSError:
    sys.exit("fdb_limit.py: no interface " + sys.argv[1])
sock = socket.socket(socket.AF_NETLINK, socket.SOCK_RAW, socket.NETLINK_ROUTE)
if len(sys.argv) == 3:
    limit = attr(IFLA_BR_FDB_MAX_LEARNED, struct.pack("=I", int(sys.argv[2])))
    info = attr(IFLA_INFO_KIND, b"bridge\0") + attr(IFLA_INFO_DATA | NLA_F_NESTED, limit)
    talk(sock, RTM_NEWLINK, index, attr(IFLA_LINKINFO | NLA_F_NESTED, info))
link = talk(sock, RTM_GETLINK, index)
values = {}
for kind, value in attrs(link[32:struct.unpack_from("=I", link)[0]]):
    for info_kind, info in attrs(value) if kind == IFLA_LINKINFO else ():
        for br_kind, br in attrs(info) if info_kind == IFLA_INFO_DATA else ():
            values[br_kind] = br
if IFLA_BR_FDB_MAX_LEARNED not in values:
    sys.exit("fdb_limit.py: this kernel's bridge has no limit of learnt entries")
print("learned %d max %d" % tuple(struct.unpack("=I", values[k][:4])[0]
                                  for k in (IFLA_BR_FDB_N_LEARNED, IFLA_BR_FDB_MAX_LEARNED)))
