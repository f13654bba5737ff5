// DHCP requests of clients seen on UDP port 67. Only hosts on ports bound to
// a bridged WAN connection are taken from here: their server is upstream, so
// no lease message of the gateway's own DHCP side ever names them.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstring>

#include "agent_log.h"
#include "lanhost_dhcp.h"
#include "lanhost_port.h"
#include "lanhost_read.h"
#include "lanhost_store.h"

namespace {

constexpr size_t kDhcpReadSize = 2048;
// RFC 2132: the pad and end options (section 3), the message type DHCPREQUEST
// (section 9.6), and the rules of the options the snooper reads.
constexpr uint8_t kOptionPad = 0, kOptionEnd = 255;
constexpr uint8_t kDhcpRequest = 3;
constexpr DhcpOptionRule kMessageType{53, 1, 1};                              // section 9.6
constexpr DhcpOptionRule kClientId{61, 7, 7};                                 // 9.14: type byte, then the MAC
constexpr DhcpOptionRule kRequestedIp{50, 4, 4};                              // 9.1
constexpr DhcpOptionRule kHostNameOption{12, 0, sizeof(lhost::HostName) - 1}; // 3.14, as long as the record holds
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
        {"op: ", h.op, false},
        {"htype: ", h.htype, false},
        {"hlen= ", h.hlen, false},
        {"hops= ", h.hops, false},
        {"xid= ", ntohl(h.xid), true},
        {"secs= ", ntohs(h.secs), false},
        {"flags= ", ntohs(h.flags), true},
    };
    for (const auto &n : numbers)
        LANHOST_LOG_AS(zn_event_lanhost_bridge_dhcpSockRead_cb, 4, n.hex ? "%s0x%x" : "%s%u", n.label, n.value);
    const struct {
        const char *label;
        in_addr addr;
    } addrs[] = {{"ciaddr= ", h.ciaddr}, {"yiaddr= ", h.yiaddr}, {"siaddr= ", h.siaddr}, {"giaddr= ", h.giaddr}};
    for (const auto &a : addrs) {
        char text[kIpv4TextSize];
        lanhost_ipv4_text(reinterpret_cast<const uint8_t *>(&a.addr), text);
        LANHOST_LOG_AS(zn_event_lanhost_bridge_dhcpSockRead_cb, 4, "%s%s", a.label, text);
    }
}

} // namespace

Parse lanhost_dhcp_option_lookup(const uint8_t *opts, size_t len, const DhcpOptionRule &rule, ByteCursor *value) {
    ByteCursor list(opts, len);
    while (const uint8_t *code = list.take(1)) {
        if (*code == kOptionPad)
            continue;
        if (*code == kOptionEnd)
            break;
        const uint8_t *n = list.take(1);
        ByteCursor v;
        if (!n || !list.sub(*n, &v))
            break;
        if (*code != rule.code)
            continue;
        if (*n < rule.minLen || *n > rule.maxLen)
            return Parse::kBadLength;
        *value = v;
        return Parse::kOk;
    }
    return Parse::kMissing;
}

Parse lanhost_dhcp_request_parse(const uint8_t *opts, size_t len, DhcpRequestSnoop *out) {
    *out = DhcpRequestSnoop{};
    ByteCursor v;
    switch (const Parse found = lanhost_dhcp_option_lookup(opts, len, kMessageType, &v)) {
    case Parse::kOk: {
        const uint8_t type = *v.take(1);
        LANHOST_LOG_AS(zn_event_lanhost_bridge_dhcpSockRead_cb, 2, "DHCP, dhcp_message_type=%d", type);
        if (type != kDhcpRequest)
            return Parse::kWrongType;
        break;
    }
    case Parse::kMissing: // taken as a request
        break;
    default:
        return found;
    }
    if (const Parse found = lanhost_dhcp_option_lookup(opts, len, kClientId, &v); found != Parse::kOk)
        return found;
    v.skip(1);
    lanhost_mac_text(v.take(6), false, out->macAddr);
    LANHOST_LOG_AS(zn_event_lanhost_bridge_dhcpSockRead_cb, 3, "DHCP, macAddr=%s", out->macAddr);
    switch (const Parse found = lanhost_dhcp_option_lookup(opts, len, kRequestedIp, &v)) {
    case Parse::kOk:
        lanhost_ipv4_text(v.take(4), out->requestedIp);
        break;
    case Parse::kMissing:
        break;
    default:
        return found;
    }
    // A name too long for the record leaves the old one; an empty one empties it.
    if (lanhost_dhcp_option_lookup(opts, len, kHostNameOption, &v) == Parse::kOk) {
        lanhost_copy_text(out->hostName, v);
        out->hasHostName = true;
    }
    return Parse::kOk;
}

void zn_event_lanhost_bridge_dhcpSockRead_cb(evutil_socket_t fd, short, void *) {
    uint8_t buf[kDhcpReadSize];
    const ssize_t n = lanhost_read_once(fd, buf, sizeof buf, {ReadFailure::kErrno, false, kDhcpOptionsAt + 1});
    if (n < 0)
        return;
    dhcp_header_dump(buf, size_t(n));
    DhcpRequestSnoop req;
    if (lanhost_dhcp_request_parse(buf + kDhcpOptionsAt, size_t(n) - kDhcpOptionsAt, &req) != Parse::kOk)
        return;
    lhost *host = list_find_lhost(req.macAddr);
    if (!host || !wrapperZns_lanhost_l2Interface_is_bridge(host))
        return;
    if (req.requestedIp[0]) {
        lanhost_copy_text(host->ipAddr, req.requestedIp);
        host->dhcpLeasetime = kSnoopedLease;
        lanhost_copy_text(host->ipAddrSource, "DHCP");
        LANHOST_LOG(3, "DHCP, ip=%s", host->ipAddr);
    }
    if (req.hasHostName)
        lanhost_copy_text(host->HostName, req.hostName);
    host->active = 1;
    LANHOST_LOG(2, "DHCP Request, mac=%s, ip=%s, Hostname=%s", req.macAddr, req.requestedIp, host->HostName);
    wrapperZns_lanhost_update(host->mac, req.requestedIp, AF_INET, 0);
}
