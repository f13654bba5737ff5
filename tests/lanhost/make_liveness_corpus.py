#!/usr/bin/env python3
"""Writes the seed corpora of the neighbour-walk and ARP-reply fuzz targets:
valid messages of each kind the tracker reads."""
import os
import struct

HERE = os.path.dirname(os.path.abspath(__file__))
AF_INET, AF_BRIDGE, AF_INET6 = 2, 7, 10
NDA_DST, NDA_LLADDR, NDA_MASTER = 1, 2, 9
HOST_MAC = bytes.fromhex("020000005201")
GW_MAC = bytes.fromhex("020000000001")


def align(b):
    return b + b"\0" * (-len(b) % 4)


def attr(kind, payload):
    return align(struct.pack("=HH", 4 + len(payload), kind) + payload)


def neigh(msg_type, family, ifindex, state, *attrs):
    body = struct.pack("=B3xiHBB", family, ifindex, state, 0, 0) + b"".join(attrs)
    return struct.pack("=IHHII", 16 + len(body), msg_type, 0, 0, 0) + body


def wlan_leave(text):
    payload = align(text.encode() + b"\0")
    return struct.pack("=IHHII", 16 + len(payload), 200, 0, 0, 0) + payload


def arp(op, sender_ip, pad=0):
    frame = (GW_MAC + HOST_MAC + bytes.fromhex("0806") + struct.pack("!HHBBH", 1, 0x0800, 6, 4, op) + HOST_MAC +
             bytes(sender_ip) + GW_MAC + bytes([192, 168, 1, 1]))
    return frame + b"\0" * pad


bridge = neigh(28, AF_BRIDGE, 3, 2, attr(NDA_LLADDR, HOST_MAC), attr(NDA_MASTER, struct.pack("=i", 2)))
corpora = {
    "lanhost_neighbor_walk_fuzz": {
        "bridge_new": bridge,
        "bridge_del": neigh(29, AF_BRIDGE, 3, 2, attr(NDA_LLADDR, HOST_MAC)),
        "inet_reachable": neigh(28, AF_INET, 2, 2, attr(NDA_DST, bytes([192, 168, 1, 52])), attr(NDA_LLADDR, HOST_MAC)),
        "inet6_global": neigh(28, AF_INET6, 2, 4, attr(NDA_DST, bytes.fromhex("20010db8" + "00" * 11 + "52")),
                              attr(NDA_LLADDR, HOST_MAC)),
        "inet6_link_local": neigh(28, AF_INET6, 2, 2, attr(NDA_DST, bytes.fromhex("fe80" + "00" * 13 + "52")),
                                  attr(NDA_LLADDR, HOST_MAC)),
        "wlan_leave": wlan_leave("02:00:00:00:52:01"),
        "three_in_one": bridge + struct.pack("=IHHII", 16, 3, 0, 0, 0) + wlan_leave("02:00:00:00:52:01"),
    },
    "lanhost_arp_reply_fuzz": {
        "reply": arp(2, [192, 168, 1, 52]),
        "reply_new_address": arp(2, [192, 168, 1, 77], pad=18),
        "request": arp(1, [192, 168, 1, 52]),
    },
}

for name, inputs in corpora.items():
    folder = os.path.join(HERE, "corpus", name)
    os.makedirs(folder, exist_ok=True)
    for file, data in inputs.items():
        with open(os.path.join(folder, file), "wb") as f:
            f.write(data)
