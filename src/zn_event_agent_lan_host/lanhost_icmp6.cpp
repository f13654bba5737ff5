// ICMPv6 liveness of hosts: solicitations to a host's link-local address,
// the advertisements that answer them, and the stand-alone listener.
#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/icmp6.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "agent_log.h"
#include "byte_cursor.h"
#include "lanhost.h"
#include "lanhost_ipv6.h"
#include "lanhost_store.h"
#include "lanhost_table.h"

namespace {

constexpr const char *kOwnIpv6Path =
    "InternetGatewayDevice.LANDevice.1.LANHostConfigManagement.IPInterface.1.X_CT-COM_IPv6Address";
constexpr size_t kOwnIpv6Room = 64;       // width of that text parameter
constexpr size_t kFrameMinimum = 30;
constexpr size_t kIcmp6At = 54;           // behind 14 bytes of Ethernet and 40 of IPv6
constexpr size_t kListenerMinimum = 31;   // the listener skips messages of 30 bytes or fewer
constexpr size_t kReadSize = 256;
constexpr size_t kListenerReadSize = 2048;
constexpr int kProbeSeconds = 3;
constexpr int kProbing = 2;               // icmp6State while a solicitation waits for its answer
constexpr int kListenerWaitSeconds = 5;
constexpr uint8_t kOptSourceLinkLayer = 1, kOptTargetLinkLayer = 2;
constexpr size_t kDeviceOptionSize = 40;
constexpr int kStoreScopeGlobal = 14, kStoreScopeLink = 2;

// Rule of the reader: an advertisement answers a host's probe when one is
// outstanding and its target is the address the probe asked about, the
// host's link-local address, compared as an address, not as text.
bool answers_probe(const lhost *host, const uint8_t *target) {
    in6_addr asked;
    return host->icmp6State == kProbing && inet_pton(AF_INET6, host->ipv6LocalAddr, &asked) == 1 &&
           memcmp(asked.s6_addr, target, sizeof asked.s6_addr) == 0;
}

// Socket options of the listener, in the order they are set.
struct ListenerOption {
    int level, name;
    const void *value;
    socklen_t size;
};

int open_listener() {
    int s = socket(AF_INET6, SOCK_RAW, IPPROTO_ICMPV6);
    if (s < 0)
        return -1;
    icmp6_filter filter;
    ICMP6_FILTER_SETBLOCKALL(&filter);
    ICMP6_FILTER_SETPASS(ND_NEIGHBOR_ADVERT, &filter);
    const int checksumAt = 2, hops = 255, one = 1;
    const ListenerOption options[] = {
        {IPPROTO_ICMPV6, ICMP6_FILTER, &filter, sizeof filter},
        {SOL_RAW, IPV6_CHECKSUM, &checksumAt, sizeof checksumAt},
        {IPPROTO_IPV6, IPV6_MULTICAST_HOPS, &hops, sizeof hops},
        {IPPROTO_IPV6, IPV6_UNICAST_HOPS, &hops, sizeof hops},
        {IPPROTO_IPV6, IPV6_RECVHOPLIMIT, &one, sizeof one},
    };
    for (const ListenerOption &o : options) {
        if (setsockopt(s, o.level, o.name, o.value, o.size) < 0) {
            close(s);
            return -1;
        }
    }
    if (lanhost_bind_to_bridge(s) < 0) {
        close(s);
        return -1;
    }
    sockaddr_in6 all{};
    all.sin6_family = AF_INET6;
    inet_pton(AF_INET6, "ff02::1", &all.sin6_addr);
    if (bind(s, reinterpret_cast<sockaddr *>(&all), sizeof all) < 0)
        puts(" createIpv6Socket bind error");
    return s;
}

} // namespace

NaCheck lanhost_na_message_parse(const uint8_t *msg, size_t len, NeighbourAdvert *na) {
    memset(na, 0, sizeof *na);
    ByteCursor c(msg, len);
    const uint8_t *type = c.take(1);
    if (!type)
        return kNaNotAdvert;
    na->type = *type;
    if (na->type != ND_NEIGHBOR_ADVERT)
        return kNaNotAdvert;
    const uint8_t *optType = nullptr, *mac = nullptr;
    // code, checksum and flags; the target; the first option's type and length; its address
    if (!c.skip(7) || !c.take_into(&na->target) || !(optType = c.take(1)) || *optType != kOptTargetLinkLayer ||
        !c.skip(1) || !(mac = c.take(sizeof na->mac)))
        return kNaNoTargetLinkLayer;
    memcpy(na->mac, mac, sizeof na->mac);
    return kNaOk;
}

NaCheck lanhost_na_frame_parse(const uint8_t *frame, size_t len, NeighbourAdvert *na) {
    memset(na, 0, sizeof *na);
    if (len < kFrameMinimum)
        return kNaTooShort;
    ByteCursor c(frame, len);
    if (!c.skip(kIcmp6At))
        return kNaNotAdvert;
    return lanhost_na_message_parse(c.peek(), c.left(), na);
}

int lanhost_bind_to_bridge(int s) {
    char device[kDeviceOptionSize] = {};
    copy_text(device, kLanBridge);
    return setsockopt(s, SOL_SOCKET, SO_BINDTODEVICE, device, sizeof device);
}

bool lanhost_ns_prepare(const char *target, NeighbourSolicit *ns) {
    memset(ns, 0, sizeof *ns);
    const unsigned ifindex = if_nametoindex(kLanBridge);
    if (ifindex == 0 || inet_pton(AF_INET6, target, &ns->dest.sin6_addr) != 1)
        return false;
    ns->dest.sin6_family = AF_INET6;
    ns->dest.sin6_port = htons(IPPROTO_ICMPV6);
    ns->dest.sin6_scope_id = ifindex;
    uint8_t *f = ns->frame;
    f[0] = ND_NEIGHBOR_SOLICIT; // code, checksum (the kernel's) and reserved stay 0
    memcpy(f + 8, &ns->dest.sin6_addr, sizeof ns->dest.sin6_addr);
    f[24] = kOptSourceLinkLayer;
    f[25] = 1; // in units of 8 bytes
    macStr_to_bytes(f + 26, gatewayBaseMac);
    return true;
}

int lanhost_own_ipv6_address(in6_addr *own) {
    const auto *value = static_cast<const char *>(znsXml_GetObjectByName(storeHandle, kOwnIpv6Path, 1));
    if (!value)
        return -1;
    char text[kOwnIpv6Room] = "";
    copy_text(text, value, kOwnIpv6Room);
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
    int s = socket(AF_INET6, SOCK_RAW, IPPROTO_ICMPV6);
    if (s < 0) {
        perror("socket");
        return 0;
    }
    NeighbourSolicit ns;
    in6_addr own;
    // The own address only gates the send: the kernel picks the source.
    if (lanhost_ns_prepare(host->ipv6LocalAddr, &ns) && lanhost_own_ipv6_address(&own) == 1) {
        if (sendto(s, ns.frame, sizeof ns.frame, 0, reinterpret_cast<sockaddr *>(&ns.dest), sizeof ns.dest) < 0)
            perror("sendto fail");
        // Without its timer a probe could never end: the host is not left waiting.
        host->icmp6State = wrapper_libevent_lhost_addIcmp6timer(host, kProbeSeconds) == 0 ? kProbing : 0;
        LANHOST_LOG(3, "send mld ns to mac=%s ip=%s", host->macAddr, host->ipv6LocalAddr);
    }
    close(s);
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
    memset(frame, 0, sizeof frame);
    ssize_t n = read(fd, frame, sizeof frame);
    if (n < 0) {
        LANHOST_LOG(1, "read fail");
        return;
    }
    NeighbourAdvert na;
    NaCheck check = lanhost_na_frame_parse(frame, size_t(n), &na);
    if (check == kNaTooShort) {
        LANHOST_LOG(1, "too short");
        return;
    }
    LANHOST_LOG(3, "nda->nd_na_hdr.icmp6_type is 0x%x", na.type);
    if (check == kNaNotAdvert) {
        LANHOST_LOG(1, "not icmpv6 nd neighbor reply");
        return;
    }
    if (check != kNaOk)
        return;
    char target[INET6_ADDRSTRLEN], mac[kMacTextSize];
    inet_ntop(AF_INET6, na.target, target, sizeof target);
    lanhost_mac_text(na.mac, true, mac);
    LANHOST_LOG(3, "dump ipv6 na packet");
    if (zn_event_lanhost_log_levels[0] > 2)
        dump_hex(frame, size_t(n));
    LANHOST_LOG(3, "sMacAddr=%s", mac);
    LANHOST_LOG(3, "sIpaddr=%s", target);
    lhost *host = list_find_lhost(mac);
    if (!host) {
        LANHOST_LOG(1, "lhost=NULL mac=%s", mac);
        return;
    }
    if (answers_probe(host, na.target)) {
        LANHOST_LOG(3, "icmpv6 nd detect mac=%s still online", mac);
        host->icmp6State = 0;
        if (host->icmp6Timer)
            wrapper_libevent_lhost_delIcmp6timer(host);
    }
}

void ipv6MulticastEvent_update(const char *macText, const char *addrText, const uint8_t *addr, const uint8_t *mac) {
    const uint32_t type = lhost_ipv6_addr_type(addr);
    lhost *host = macText[0] && addrText[0] ? list_find_lhost(macText) : nullptr;
    if (!host || !(type & kIpv6Unicast))
        return;
    const bool global = (type & kIpv6ScopeGlobal) == kIpv6ScopeGlobal;
    if (!global && !(type & kIpv6LinkLocal))
        return;
    char *field = global ? host->ipv6Addr : host->ipv6LocalAddr;
    if (strcmp(field, addrText) == 0 || strlen(addrText) >= sizeof host->ipv6Addr)
        return;
    copy_text(field, sizeof host->ipv6Addr, addrText);
    wrapperZns_lanhost_update(mac, field, AF_INET6, global ? kStoreScopeGlobal : kStoreScopeLink);
}

void *ipv6MulticastEventHandler(void *) {
    int s = open_listener();
    if (s < 0)
        return nullptr;
    for (;;) {
        fd_set readable;
        FD_ZERO(&readable);
        FD_SET(s, &readable);
        timeval wait{kListenerWaitSeconds, 0};
        int ready = select(s + 1, &readable, nullptr, nullptr, &wait);
        if (ready < 0)
            ZN_LOG(0, "select error: %s\n", strerror(errno));
        if (ready <= 0)
            continue;
        uint8_t msg[kListenerReadSize];
        ssize_t n = recvfrom(s, msg, sizeof msg, 0, nullptr, nullptr);
        NeighbourAdvert na;
        if (n < ssize_t(kListenerMinimum) || lanhost_na_message_parse(msg, size_t(n), &na) != kNaOk)
            continue;
        char target[INET6_ADDRSTRLEN], mac[kMacTextSize];
        inet_ntop(AF_INET6, na.target, target, sizeof target);
        lanhost_mac_text(na.mac, true, mac);
        ipv6MulticastEvent_update(mac, target, na.target, na.mac);
    }
}
