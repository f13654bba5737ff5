// Fuzz target: one datagram of the neighbour socket as the tracker walks it.
// Bridge entries are parsed but not handled: handling them asks the machine's
// own interfaces and creates hosts.
#include <linux/neighbour.h>
#include <sys/socket.h>

#include "lanhost_neighbor.h"

namespace {

void visit(uint16_t type, const uint8_t *msg, size_t len) {
    NeighborMsg m;
    if (type != kWlanLeaveMsgType && lanhost_neighbor_parse(msg, len, &m) == Parse::kOk && m.family == AF_BRIDGE) {
        uint8_t mac[6];
        in_addr v4;
        in6_addr v6;
        int32_t master;
        lanhost_attr_mac(m.attr[NDA_LLADDR], mac);
        lanhost_attr_ipv4(m.attr[NDA_DST], &v4);
        lanhost_attr_ipv6(m.attr[NDA_DST], &v6);
        lanhost_attr_master(m.attr[NDA_MASTER], &master);
        return;
    }
    lanhost_neighbor_dispatch(type, msg, len);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    lanhost_neighbor_walk(data, size, visit);
    return 0;
}
