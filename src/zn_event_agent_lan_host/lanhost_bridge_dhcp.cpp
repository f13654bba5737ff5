// DHCP requests of clients seen on UDP port 67. Only hosts on ports bound to
// a bridged WAN connection are taken from here: their server is upstream, so
// no lease message of the gateway's own DHCP side ever names them.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "agent_log.h"
#include "lanhost_dhcp.h"
#include "lanhost_store.h"

namespace {

constexpr uint8_t kOptionPad = 0, kOptionEnd = 255;
constexpr uint8_t kDhcpRequest = 3;
constexpr DhcpOptionRule kMessageType{53, 1, 1};
constexpr DhcpOptionRule kClientId{61, 7, 7};  // type byte, then the MAC
constexpr DhcpOptionRule kRequestedIp{50, 4, 4};
constexpr DhcpOptionRule kHostNameOption{12, 1, sizeof(lhost::HostName) - 1};
// What the store's signed lease parameter shows as -1: the lease is upstream.
constexpr int64_t kSnoopedLease = 0xFFFFFFFF;

// The part of the fixed header that the debug dump shows.
struct DhcpHeader {
    uint8_t op, htype, hlen, hops;
    uint32_t xid;
    uint16_t secs, flags;
    in_addr ciaddr, yiaddr, siaddr, giaddr;
};
static_assert(sizeof(DhcpHeader) == 28, "fixed header up to giaddr");

void dhcp_header_dump(const uint8_t *buf, size_t len) {
    DhcpHeader h;
    ByteCursor c(buf, len);
    if (!c.take_into(&h))
        return;
    const struct {
        const char *label;
        unsigned value;
        bool hex;
    } numbers[] = {
        {"op: ", h.op, false},          {"htype: ", h.htype, false},    {"hlen= ", h.hlen, false},
        {"hops= ", h.hops, false},      {"xid= ", ntohl(h.xid), true},  {"secs= ", ntohs(h.secs), false},
        {"flags= ", ntohs(h.flags), true},
    };
    for (const auto &n : numbers)
        LANHOST_LOG(4, n.hex ? "%s0x%x" : "%s%u", n.label, n.value);
    const struct {
        const char *label;
        in_addr addr;
    } addrs[] = {{"ciaddr= ", h.ciaddr}, {"yiaddr= ", h.yiaddr}, {"siaddr= ", h.siaddr}, {"giaddr= ", h.giaddr}};
    for (const auto &a : addrs) {
        char text[INET_ADDRSTRLEN];
        inet_ntop(AF_INET, &a.addr, text, sizeof text);
        LANHOST_LOG(4, "%s%s", a.label, text);
    }
}

} // namespace

DhcpOption dhcp_option_lookup(const uint8_t *opts, size_t len, const DhcpOptionRule &rule, ByteCursor *value) {
    ByteCursor list(opts, len);
    while (const uint8_t *code = list.take(1)) {
        if (*code == kOptionPad)
            continue;
        if (*code == kOptionEnd)
            break;
        const uint8_t *n = list.take(1);
        ByteCursor v(nullptr, 0);
        if (!n || !list.sub(*n, &v))
            break;
        if (*code != rule.code)
            continue;
        if (*n < rule.minLen || *n > rule.maxLen)
            return DhcpOption::kBadLength;
        *value = v;
        return DhcpOption::kFound;
    }
    return DhcpOption::kAbsent;
}

int zn_event_lanhost_dhcpRequest_parse(const uint8_t *opts, size_t len, DhcpRequestSnoop *out) {
    memset(out, 0, sizeof *out);
    ByteCursor v(nullptr, 0);
    switch (dhcp_option_lookup(opts, len, kMessageType, &v)) {
    case DhcpOption::kBadLength:
        return -1;
    case DhcpOption::kFound: {
        const uint8_t type = *v.take(1);
        LANHOST_LOG(2, "DHCP, dhcp_message_type=%d", type);
        if (type != kDhcpRequest)
            return -1;
        break;
    }
    case DhcpOption::kAbsent: // taken as a request
        break;
    }
    if (dhcp_option_lookup(opts, len, kClientId, &v) != DhcpOption::kFound)
        return -1;
    v.skip(1);
    lanhost_mac_text(v.take(6), false, out->macAddr);
    LANHOST_LOG(3, "DHCP, macAddr=%s", out->macAddr);
    switch (dhcp_option_lookup(opts, len, kRequestedIp, &v)) {
    case DhcpOption::kBadLength:
        return -1;
    case DhcpOption::kFound: {
        const uint8_t *ip = v.take(4);
        snprintf(out->requestedIp, sizeof out->requestedIp, "%d.%d.%d.%d", ip[0], ip[1], ip[2], ip[3]);
        break;
    }
    case DhcpOption::kAbsent:
        break;
    }
    // A name too long for the record, or empty, leaves the old one.
    if (dhcp_option_lookup(opts, len, kHostNameOption, &v) == DhcpOption::kFound) {
        copy_text(out->hostName, reinterpret_cast<const char *>(v.peek()), v.left());
        out->hasHostName = out->hostName[0] != '\0';
    }
    return 0;
}

void zn_event_lanhost_bridge_dhcpSockRead_cb(evutil_socket_t fd, short, void *) {
    uint8_t buf[kDhcpReadSize] = {};
    const ssize_t n = recv(fd, buf, sizeof buf, 0);
    if (n <= ssize_t(kDhcpOptionsAt)) {
        LANHOST_LOG(1, "read error: %s\n", strerror(errno));
        return;
    }
    dhcp_header_dump(buf, size_t(n));
    DhcpRequestSnoop req;
    if (zn_event_lanhost_dhcpRequest_parse(buf + kDhcpOptionsAt, size_t(n) - kDhcpOptionsAt, &req) < 0)
        return;
    lhost *host = list_find_lhost(req.macAddr);
    if (!host || !wrapperZns_lanhost_l2Interface_is_bridge(host))
        return;
    if (req.requestedIp[0]) {
        copy_text(host->ipAddr, req.requestedIp);
        host->dhcpLeasetime = kSnoopedLease;
        copy_text(host->ipAddrSource, "DHCP");
        LANHOST_LOG(3, "DHCP, ip=%s", host->ipAddr);
    }
    if (req.hasHostName)
        copy_text(host->HostName, req.hostName);
    host->active = 1;
    LANHOST_LOG(2, "DHCP Request, mac=%s, ip=%s, Hostname=%s", req.macAddr, req.requestedIp, host->HostName);
    wrapperZns_lanhost_update(host->mac, req.requestedIp, AF_INET, 0);
}
