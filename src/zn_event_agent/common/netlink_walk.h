// The one walk of a netlink datagram that every reader of the agent shares.
#pragma once

#include <linux/netlink.h>

#include <cstring>

#include "byte_cursor.h"

// Calls fn(header, message bytes) for each message of the datagram: stops at
// a length below the header's or beyond the bytes left, steps by the length
// rounded up to a multiple of 4.
template <typename Fn> void netlink_datagram_walk(const uint8_t *buf, size_t len, Fn &&fn) {
    ByteCursor walk(buf, len);
    nlmsghdr h;
    while (walk.left() >= sizeof h) {
        memcpy(&h, walk.peek(), sizeof h);
        if (h.nlmsg_len < sizeof h || h.nlmsg_len > walk.left())
            return;
        fn(h, walk.peek());
        if (!walk.skip(NLMSG_ALIGN(h.nlmsg_len)))
            return;
    }
}
