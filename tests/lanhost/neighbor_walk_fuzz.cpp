// Fuzz target: one datagram of the neighbour socket as the tracker walks it.
// Bridge entries are parsed but not handled: handling them asks the machine's
// own interfaces and creates hosts.
#include <linux/neighbour.h>
#include <sys/socket.h>

#include "lanhost_neighbor.h"

namespace {

void visit(uint16_t type, const uint8_t *msg, size_t len) {
    NeighMsg m;
    if (type != kWlanLeaveMsgType && netlink_neighborMsg_parse(msg, len, &m) && m.family == AF_BRIDGE) {
        char mac[kMacTextSize], v4[16], v6[46];
        neigh_mac_text(m.attr[NDA_LLADDR], mac);
        neigh_ipv4_text(m.attr[NDA_DST], v4);
        neigh_ipv6_text(m.attr[NDA_DST], v6);
        return;
    }
    netlink_neighborMsg_dispatch(type, msg, len);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    netlink_neighborMsgs_walk(data, size, visit);
    return 0;
}
