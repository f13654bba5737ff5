// ICMPv6 liveness of hosts: solicitations to a host's link-local address,
// the advertisements that answer them, and the stand-alone listener.
#include "lanhost_icmp6.h"

#include <arpa/inet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <netinet/icmp6.h>
#include <netinet/ip6.h>
#include <sys/select.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "agent_log.h"
#include "lanhost.h"
#include "lanhost_read.h"
#include "lanhost_store.h"
#include "unique_fd.h"

namespace {

constexpr const char *kOwnIpv6Path =
    "InternetGatewayDevice.LANDevice.1.LANHostConfigManagement.IPInterface.1.X_CT-COM_IPv6Address";
constexpr size_t kOwnIpv6Room = 64;  // width of that text parameter
constexpr size_t kFrameMinimum = 30; // the reader's own floor, below any whole advertisement
constexpr size_t kIcmp6At = sizeof(ether_header) + sizeof(ip6_hdr);
static_assert(kIcmp6At == 54, "ICMPv6 right behind the fixed IPv6 header");
constexpr size_t kListenerMinimum = 31; // the listener skips messages of 30 bytes or fewer
constexpr size_t kReadSize = 256;
constexpr size_t kListenerReadSize = 2048;
constexpr int kListenerWaitSeconds = 5;
constexpr size_t kDeviceOptionSize = 40;
constexpr const char kAllNodes[] = "ff02::1"; // RFC 4291, section 2.7.1
constexpr int kIcmp6ChecksumAt = 2;           // RFC 4443, section 2.1

// The solicitation with its source link-layer address option (RFC 4861,
// sections 4.3 and 4.6.1).
struct SolicitFrame {
    nd_neighbor_solicit ns;
    nd_opt_hdr opt;
    uint8_t mac[ETH_ALEN];
};
static_assert(sizeof(SolicitFrame) == kNsSize && offsetof(SolicitFrame, opt) == 24,
              "24 bytes of solicitation, then one option of 8 bytes");

// Rule of the reader: an advertisement answers a host's probe when one is
// outstanding and its target is the address the probe asked about, the
// host's link-local address, compared as an address, not as text.
bool answers_probe(const lhost *host, const uint8_t *target) {
    in6_addr asked;
    return host->icmp6State == kIcmp6Probing && inet_pton(AF_INET6, host->ipv6LocalAddr, &asked) == 1 &&
           memcmp(asked.s6_addr, target, sizeof asked.s6_addr) == 0;
}

// Socket options of the listener, in the order they are set.
struct ListenerOption {
    int level, name;
    const void *value;
    socklen_t size;
};

int open_listener() {
    UniqueFd s(socket(AF_INET6, SOCK_RAW, IPPROTO_ICMPV6));
    if (!s)
        return -1;
    icmp6_filter filter;
    ICMP6_FILTER_SETBLOCKALL(&filter);
    ICMP6_FILTER_SETPASS(ND_NEIGHBOR_ADVERT, &filter);
    const int hops = 255, one = 1;
    const ListenerOption options[] = {
        {IPPROTO_ICMPV6, ICMP6_FILTER, &filter, sizeof filter},
        {SOL_RAW, IPV6_CHECKSUM, &kIcmp6ChecksumAt, sizeof kIcmp6ChecksumAt},
        {IPPROTO_IPV6, IPV6_MULTICAST_HOPS, &hops, sizeof hops},
        {IPPROTO_IPV6, IPV6_UNICAST_HOPS, &hops, sizeof hops},
        {IPPROTO_IPV6, IPV6_RECVHOPLIMIT, &one, sizeof one},
    };
    for (const ListenerOption &o : options)
        if (setsockopt(s.get(), o.level, o.name, o.value, o.size) < 0)
            return -1;
    if (lanhost_bind_to_bridge(s.get()) < 0)
        return -1;
    sockaddr_in6 all{};
    all.sin6_family = AF_INET6;
    inet_pton(AF_INET6, kAllNodes, &all.sin6_addr);
    if (bind(s.get(), reinterpret_cast<sockaddr *>(&all), sizeof all) < 0)
        puts(" createIpv6Socket bind error");
    return s.release();
}

} // namespace

Parse lanhost_na_message_parse(const uint8_t *msg, size_t len, NeighborAdvert *na) {
    *na = NeighborAdvert{};
    ByteCursor c(msg, len);
    if (!c.left() || (na->type = *c.peek()) != ND_NEIGHBOR_ADVERT)
        return Parse::kWrongType;
    nd_neighbor_advert advert;
    nd_opt_hdr opt;
    const uint8_t *mac = nullptr;
    if (!c.take_into(&advert) || !c.take_into(&opt) || opt.nd_opt_type != ND_OPT_TARGET_LINKADDR ||
        !(mac = c.take(sizeof na->mac)))
        return Parse::kMissing;
    memcpy(na->target, &advert.nd_na_target, sizeof na->target);
    memcpy(na->mac, mac, sizeof na->mac);
    return Parse::kOk;
}

Parse lanhost_na_frame_parse(const uint8_t *frame, size_t len, NeighborAdvert *na) {
    *na = NeighborAdvert{};
    if (len < kFrameMinimum)
        return Parse::kTooShort;
    ByteCursor c(frame, len);
    if (!c.skip(kIcmp6At))
        return Parse::kWrongType;
    return lanhost_na_message_parse(c.peek(), c.left(), na);
}

int lanhost_bind_to_bridge(int s) {
    char device[kDeviceOptionSize] = {};
    lanhost_copy_text(device, kLanBridge);
    return setsockopt(s, SOL_SOCKET, SO_BINDTODEVICE, device, sizeof device);
}

bool lanhost_ns_prepare(const char *target, NeighborSolicit *ns) {
    memset(ns, 0, sizeof *ns);
    const unsigned ifindex = if_nametoindex(kLanBridge);
    if (ifindex == 0 || inet_pton(AF_INET6, target, &ns->dest.sin6_addr) != 1)
        return false;
    ns->dest.sin6_family = AF_INET6;
    ns->dest.sin6_port = htons(IPPROTO_ICMPV6);
    ns->dest.sin6_scope_id = ifindex;
    SolicitFrame f;
    memset(&f, 0, sizeof f); // code, checksum (the kernel's) and reserved stay 0
    f.ns.nd_ns_type = ND_NEIGHBOR_SOLICIT;
    f.ns.nd_ns_target = ns->dest.sin6_addr;
    f.opt.nd_opt_type = ND_OPT_SOURCE_LINKADDR;
    f.opt.nd_opt_len = 1; // in units of 8 bytes
    macStr_to_bytes(f.mac, gatewayBaseMac);
    memcpy(ns->frame, &f, sizeof ns->frame);
    return true;
}

int lanhost_own_ipv6_address(in6_addr *own) {
    const auto *value = static_cast<const char *>(znsXml_GetObjectByName(storeHandle, kOwnIpv6Path, 1));
    if (!value)
        return -1;
    char text[kOwnIpv6Room] = "";
    lanhost_copy_text(text, value, kOwnIpv6Room);
    // A value with a prefix length gives the address alone.
    if (strlen(text) <= 3)
        return 0;
    if (char *slash = strchr(text, '/'))
        *slash = '\0';
    return inet_pton(AF_INET6, text, own) == 1 ? 1 : 0;
}

int wrapper_libevent_lhost_addIcmp6timer(lhost *host, int seconds) {
    event *timer = event_new(lanhostEventBase, -1, 0, zn_event_lanhost_icmp6timer_cb, host);
    timeval after{seconds, 0};
    if (!timer || event_add(timer, &after) < 0) {
        LANHOST_LOG(1, "add icmp6 timer fail mac=%s", host->macAddr);
        if (timer)
            event_free(timer);
        return -1;
    }
    // One handle per record: a timer it no longer held could outlive it.
    if (host->icmp6Timer)
        wrapper_libevent_lhost_delIcmp6timer(host);
    host->icmp6Timer = timer;
    LANHOST_LOG(3, "add icmp6 timer");
    return 0;
}

int zn_event_lanhost_icmp6_ping(lhost *host) {
    if (!host->ipv6LocalAddr[0]) {
        LANHOST_LOG(3, "ipv6=[ ] mac=%s", host->macAddr);
        return 0;
    }
    // The probe under way decides; a second one would only restart its clock.
    if (host->icmp6Timer) {
        LANHOST_LOG(3, "icmp6 probe of mac=%s already waiting", host->macAddr);
        return 0;
    }
    UniqueFd s(socket(AF_INET6, SOCK_RAW, IPPROTO_ICMPV6));
    if (!s) {
        perror("socket");
        return 0;
    }
    NeighborSolicit ns;
    in6_addr own;
    // The own address only gates the send: the kernel picks the source.
    if (lanhost_ns_prepare(host->ipv6LocalAddr, &ns) && lanhost_own_ipv6_address(&own) == 1) {
        if (sendto(s.get(), ns.frame, sizeof ns.frame, 0, reinterpret_cast<sockaddr *>(&ns.dest), sizeof ns.dest) < 0)
            perror("sendto fail");
        // Without its timer a probe could never end: the host is not left waiting.
        host->icmp6State = wrapper_libevent_lhost_addIcmp6timer(host, kProbeSeconds) == 0 ? kIcmp6Probing : 0;
        LANHOST_LOG(3, "send mld ns to mac=%s ip=%s", host->macAddr, host->ipv6LocalAddr);
    }
    return 0;
}

void zn_event_lanhost_icmp6timer_cb(evutil_socket_t, short, void *arg) {
    auto *host = static_cast<lhost *>(arg);
    LANHOST_LOG(3, "icmp6 timer timeout call back");
    LANHOST_LOG(3, "lhost mac=%s ip=%s not reply ns, set it offline", host->macAddr, host->ipv6LocalAddr);
    if (host->icmp6Timer)
        wrapper_libevent_lhost_delIcmp6timer(host);
    wrapperZns_lanhostIPv6_set_offline(host);
}

void zn_event_lanhost_ipv6MulticastSockRead_cb(evutil_socket_t fd, short, void *) {
    LANHOST_LOG(3, "receive mld na packet");
    uint8_t frame[kReadSize];
    const ssize_t n = lanhost_read_once(fd, frame, sizeof frame, {ReadFailure::kPlain});
    if (n >= 0)
        lanhost_na_handle(frame, size_t(n));
}

void lanhost_na_handle(const uint8_t *frame, size_t len) {
#define NA_LOG(level, ...) LANHOST_LOG_AS(zn_event_lanhost_ipv6MulticastSockRead_cb, level, __VA_ARGS__)
    NeighborAdvert na;
    const Parse check = lanhost_na_frame_parse(frame, len, &na);
    if (check == Parse::kTooShort) {
        NA_LOG(1, "too short");
        return;
    }
    NA_LOG(3, "nda->nd_na_hdr.icmp6_type is 0x%x", na.type);
    if (check == Parse::kWrongType) {
        NA_LOG(1, "not icmpv6 nd neighbor reply");
        return;
    }
    if (check != Parse::kOk)
        return;
    char target[INET6_ADDRSTRLEN], mac[kMacTextSize];
    inet_ntop(AF_INET6, na.target, target, sizeof target);
    lanhost_mac_text(na.mac, true, mac);
    NA_LOG(3, "dump ipv6 na packet");
    if (zn_event_lanhost_log_levels[0] > 2)
        dump_hex(frame, len);
    NA_LOG(3, "sMacAddr=%s", mac);
    NA_LOG(3, "sIpaddr=%s", target);
    lhost *host = list_find_lhost(mac);
    if (!host) {
        NA_LOG(1, "lhost=NULL mac=%s", mac);
        return;
    }
    if (answers_probe(host, na.target)) {
        NA_LOG(3, "icmpv6 nd detect mac=%s still online", mac);
        host->icmp6State = 0;
        if (host->icmp6Timer)
            wrapper_libevent_lhost_delIcmp6timer(host);
    }
#undef NA_LOG
}

void ipv6MulticastEvent_update(const char *macText, const char *addrText, const uint8_t *addr, const uint8_t *mac) {
    const uint32_t type = lhost_ipv6_addr_type(addr);
    lhost *host = macText[0] && addrText[0] ? list_find_lhost(macText) : nullptr;
    const bool global = lanhost_ipv6_is_global(type);
    if (!host || (!global && !lanhost_ipv6_is_link_local(type)))
        return;
    char *field = global ? host->ipv6Addr : host->ipv6LocalAddr;
    if (strcmp(field, addrText) == 0 || strlen(addrText) >= kIpv6TextRoom)
        return;
    lanhost_copy_text(field, kIpv6TextRoom, addrText);
    wrapperZns_lanhost_update(mac, field, AF_INET6, int(global ? kIpv6ScopeGlobal : kIpv6ScopeLink));
}

void *ipv6MulticastEventHandler(void *) {
    const UniqueFd s(open_listener());
    if (!s)
        return nullptr;
    for (;;) {
        fd_set readable;
        FD_ZERO(&readable);
        FD_SET(s.get(), &readable);
        timeval wait{kListenerWaitSeconds, 0};
        int ready = select(s.get() + 1, &readable, nullptr, nullptr, &wait);
        if (ready < 0)
            ZN_LOG(0, "select error: %s\n", strerror(errno));
        if (ready <= 0)
            continue;
        uint8_t msg[kListenerReadSize];
        ssize_t n = recvfrom(s.get(), msg, sizeof msg, 0, nullptr, nullptr);
        NeighborAdvert na;
        if (n < ssize_t(kListenerMinimum) || lanhost_na_message_parse(msg, size_t(n), &na) != Parse::kOk)
            continue;
        char target[INET6_ADDRSTRLEN], mac[kMacTextSize];
        inet_ntop(AF_INET6, na.target, target, sizeof target);
        lanhost_mac_text(na.mac, true, mac);
        ipv6MulticastEvent_update(mac, target, na.target, na.mac);
    }
}
