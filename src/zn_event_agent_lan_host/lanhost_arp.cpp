// ARP liveness probing (RFC 826 frames): the probe, its time-out, and the
// reader of replies, which also gives hosts on bridged ports their address.
#include "lanhost_arp.h"

#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <netinet/if_ether.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cstdio>
#include <cstring>
#include <iterator>

#include "agent_log.h"
#include "lanhost.h"
#include "lanhost_port.h"
#include "lanhost_read.h"
#include "lanhost_store.h"
#include "unique_fd.h"

namespace {

constexpr size_t kArpReadSize = 256;

struct ArpRequestFrame {
    ether_header eth;
    ether_arp arp;
    uint8_t trailer[22];
};
static_assert(sizeof(ArpRequestFrame) == kArpRequestSize, "the probe is one 64-byte frame");
static_assert(offsetof(ArpRequestFrame, arp) == 14 && offsetof(ether_arp, arp_tpa) == 24,
              "the ARP body follows the Ethernet header; the target address ends it at byte 42");
static_assert(sizeof(ether_header) + sizeof(ether_arp) == 42, "a reply is read from 42 bytes on");

// The bridge's interface queries that a probe needs, with their failure texts.
struct BridgeQuery {
    unsigned long request;
    const char *failure;
};
enum { kQueryIndex, kQueryHwaddr, kQueryAddr };
constexpr BridgeQuery kBridgeQueries[] = {
    {SIOCGIFINDEX, "ioctl SIOCGIFINDEX "},
    {SIOCGIFHWADDR, "ioctl SIOCGIFHWADDR "},
    {SIOCGIFADDR, "ioctl SIOCGIFADDR"},
};

// The bridge's index and addresses, read afresh so that a changed LAN address
// is used at once.
bool query_bridge(int s, ifreq (&out)[std::size(kBridgeQueries)]) {
    for (size_t i = 0; i < std::size(kBridgeQueries); i++) {
        memset(&out[i], 0, sizeof out[i]);
        lanhost_copy_text(out[i].ifr_name, kLanBridge);
        if (ioctl(s, kBridgeQueries[i].request, &out[i]) < 0) {
            perror(kBridgeQueries[i].failure);
            return false;
        }
    }
    return true;
}

} // namespace

void lanhost_arp_request_build(uint8_t (&frame)[kArpRequestSize], const uint8_t *hostMac, const uint8_t *ownMac,
                               const uint8_t *ownIp, const uint8_t *hostIp) {
    ArpRequestFrame f;
    memset(&f, 0, sizeof f);
    memcpy(f.eth.ether_dhost, hostMac, ETH_ALEN);
    memcpy(f.eth.ether_shost, ownMac, ETH_ALEN);
    f.eth.ether_type = htons(ETHERTYPE_ARP);
    f.arp.arp_hrd = htons(ARPHRD_ETHER);
    f.arp.arp_pro = htons(ETHERTYPE_IP);
    f.arp.arp_hln = ETH_ALEN;
    f.arp.arp_pln = sizeof f.arp.arp_spa;
    f.arp.arp_op = htons(ARPOP_REQUEST);
    memcpy(f.arp.arp_sha, ownMac, ETH_ALEN);
    memcpy(f.arp.arp_spa, ownIp, sizeof f.arp.arp_spa);
    memcpy(f.arp.arp_tpa, hostIp, sizeof f.arp.arp_tpa);
    memcpy(frame, &f, sizeof frame);
}

int zn_event_lanhost_arpping(lhost *host) {
    in_addr target;
    if (!host->ipAddr[0] || strcmp(host->ipAddr, "0.0.0.0") == 0 || inet_pton(AF_INET, host->ipAddr, &target) != 1) {
        LANHOST_LOG(3, "ip=[ ] mac=%s", host->macAddr);
        return 0;
    }
    if (strstr(host->Layer2Interface, "WLANConfiguration")) {
        LANHOST_LOG(1, "ip=%s mac=%s from wlan interface %s not send ARP to detect it", host->ipAddr, host->macAddr,
                    host->brPortName);
        return 0;
    }
    // One question at a time: the outstanding probe ends on any reply.
    if (host->arpTimer) {
        LANHOST_LOG(3, "arp already send jump mac=%s", host->macAddr);
        return 0;
    }
    UniqueFd s(socket(AF_PACKET, SOCK_RAW, htons(ETHERTYPE_ARP)));
    if (!s) {
        perror("socket");
        return 0;
    }
    ifreq bridge[std::size(kBridgeQueries)];
    if (!query_bridge(s.get(), bridge))
        return 0;
    const auto &ownIp = reinterpret_cast<const sockaddr_in &>(bridge[kQueryAddr].ifr_addr);
    uint8_t frame[kArpRequestSize];
    lanhost_arp_request_build(
        frame, host->mac, reinterpret_cast<const uint8_t *>(bridge[kQueryHwaddr].ifr_hwaddr.sa_data),
        reinterpret_cast<const uint8_t *>(&ownIp.sin_addr), reinterpret_cast<const uint8_t *>(&target));
    sockaddr_ll to;
    memset(&to, 0, sizeof to);
    to.sll_family = AF_PACKET;
    to.sll_ifindex = bridge[kQueryIndex].ifr_ifindex;
    // A failed send ends as a time-out.
    if (sendto(s.get(), frame, sizeof frame, 0, reinterpret_cast<sockaddr *>(&to), sizeof to) < 0)
        perror("sendto fail");
    // Without its timer the probe could never end, so it doesn't begin.
    if (wrapper_libevent_lhost_addArptimer(host, kProbeSeconds) == 0)
        host->arpState = kArpProbing;
    LANHOST_LOG(3, "send arpping to mac=%s ip=%s", host->macAddr, host->ipAddr);
    return 0;
}

int wrapper_libevent_lhost_addArptimer(lhost *host, int seconds) {
    if (host->arpTimer)
        wrapper_libevent_lhost_delArptimer(host);
    event *timer = event_new(lanhostEventBase, -1, 0, zn_event_lanhost_arppingtimer_cb, host);
    const timeval after{seconds, 0};
    if (!timer || event_add(timer, &after) < 0) {
        if (timer)
            event_free(timer);
        LANHOST_LOG(1, "add arpping timer fail");
        return -1;
    }
    host->arpTimer = timer;
    LANHOST_LOG(3, "add arpping timer");
    return 0;
}

void zn_event_lanhost_arppingtimer_cb(evutil_socket_t, short, void *arg) {
    auto *host = static_cast<lhost *>(arg);
    LANHOST_LOG(3, "arpping timer timeout call back");
    LANHOST_LOG(3, "lhost mac=%s ip=%s not reply arpping, set it offline", host->macAddr, host->ipAddr);
    host->active = 0;
    host->arpState = 0;
    if (host->arpTimer)
        wrapper_libevent_lhost_delArptimer(host);
    wrapperZns_lanhost_set_offline(host);
}

void zn_event_lanhost_arpreply_read_cb(evutil_socket_t fd, short, void *) {
    LANHOST_LOG(3, "receive arp packet");
    uint8_t frame[kArpReadSize];
    const ssize_t n = lanhost_read_once(fd, frame, sizeof frame, {ReadFailure::kPlain});
    if (n >= 0)
        lanhost_arp_reply_handle(frame, size_t(n));
}

Parse lanhost_arp_reply_parse(const uint8_t *frame, size_t len, ArpReply *reply) {
    *reply = ArpReply{};
    ByteCursor c(frame, len);
    ether_header eth;
    ether_arp arp;
    if (!c.take_into(&eth) || !c.take_into(&arp))
        return Parse::kTooShort;
    if (ntohs(arp.arp_op) != ARPOP_REPLY)
        return Parse::kWrongType;
    memcpy(reply->dstMac, eth.ether_dhost, sizeof reply->dstMac);
    memcpy(reply->srcMac, eth.ether_shost, sizeof reply->srcMac);
    memcpy(reply->senderIp, arp.arp_spa, sizeof reply->senderIp);
    memcpy(reply->targetIp, arp.arp_tpa, sizeof reply->targetIp);
    return Parse::kOk;
}

void lanhost_arp_reply_handle(const uint8_t *frame, size_t len) {
#define ARP_LOG(level, ...) LANHOST_LOG_AS(zn_event_lanhost_arpreply_read_cb, level, __VA_ARGS__)
    ArpReply r;
    switch (lanhost_arp_reply_parse(frame, len, &r)) {
    case Parse::kOk:
        break;
    case Parse::kTooShort:
        ARP_LOG(1, "too short");
        return;
    default:
        ARP_LOG(1, "not arp reply");
        return;
    }
    ARP_LOG(3, "dump arp packet");
    if (zn_event_lanhost_log_levels[0] > 2)
        dump_hex(frame, len);
    char sMac[kMacTextSize], dMac[kMacTextSize], sIp[kIpv4TextSize], tIp[kIpv4TextSize];
    lanhost_mac_text(r.srcMac, true, sMac);
    lanhost_mac_text(r.dstMac, true, dMac);
    lanhost_ipv4_text(r.senderIp, sIp);
    lanhost_ipv4_text(r.targetIp, tIp);
    ARP_LOG(3, "sMacAddr=%s", sMac);
    ARP_LOG(3, "dMacAddr=%s", dMac);
    ARP_LOG(3, "sIpaddr=%s", sIp);
    ARP_LOG(3, "tInaddr=%s", tIp);
    lhost *host = list_find_lhost(sMac);
    if (!host) {
        ARP_LOG(3, "lhost=NULL mac=%s", sMac);
        return;
    }
    if (strcmp(sIp, host->ipAddr) != 0) {
        ARP_LOG(3, "arpIp=%s lhostIp=%s change, mac=%s", sIp, host->ipAddr, host->macAddr);
        wrapperZns_lanhost_bridge_handle(host, sIp);
    }
    // Any reply from the host ends its probe, whatever address it answers for.
    if (host->arpState == kArpProbing) {
        ARP_LOG(3, "arpping detect mac=%s still online", host->macAddr);
        host->arpState = 0;
        if (host->arpTimer)
            wrapper_libevent_lhost_delArptimer(host);
    }
#undef ARP_LOG
}

int wrapperZns_lanhost_bridge_handle(lhost *host, const char *senderIp) {
    if (wrapperZns_lanhost_l2Interface_is_bridge(host) != 1)
        return 0;
    lanhost_copy_text(host->ipAddr, senderIp);
    if (!host->active) {
        LANHOST_LOG(4, "update active to 1");
        host->active = 1;
    }
    wrapperZns_lanhost_update(host->mac, host->ipAddr, AF_INET, 0);
    return 0;
}
