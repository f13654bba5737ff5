#include "link_events.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "agent_log.h"
#include "byte_cursor.h"
#include "netlink_walk.h"
#include "unique_fd.h"
#include "znsmsg.h"
#include "znsutils.h"

namespace {

constexpr uint32_t kLinkGroups =
    RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV4_ROUTE | RTMGRP_IPV6_IFADDR | RTMGRP_IPV6_ROUTE;
static_assert(kLinkGroups == 0x551, "the link worker's groups");
// Room for a burst: a port's first carrier-up with IPv6 brings its link-local
// address and routes just ahead of the link message, and ports come up
// together; 2048 bytes lost the link message of a WAN port's first up.
constexpr int kLinkRcvBuf = 256 * 1024;
constexpr size_t kLinkDatagram = 2048;
constexpr int kSelectSeconds = 5;
constexpr size_t kWanLineRoom = 32;
constexpr const char *kEtherType = "ETHER";

// Messages of the subscribed groups that carry nothing for this worker.
constexpr uint16_t kQuietTypes[] = {NLMSG_ERROR, NLMSG_DONE, RTM_NEWADDR, RTM_DELADDR, RTM_NEWROUTE, RTM_DELROUTE};

constexpr const char *kLanPorts[] = {"eth0", "eth1", "eth2", "eth3", "eth4", "lan0", "lan1", "lan2", "lan3", "lan4"};
constexpr const char *kSsidPorts[] = {"ra0.0",  "ra1.0",  "ra2.0",  "ra3.0",  "ra4.0",  "ra5.0",  "ra6.0",  "ra7.0",
                                      "rax0.0", "rax1.0", "rax2.0", "rax3.0", "rax4.0", "rax5.0", "rax6.0", "rax7.0"};

// A class of ports: its word in the system log, its payload key and events.
struct LinkClass {
    const char *word;
    const char *key;
    uint32_t up, down;
    const char *const *ports;
    size_t count;
};
constexpr LinkClass kWanClass = {"WAN", "ETHER", ZNS_EVENT_WAN_LINK_UP, ZNS_EVENT_WAN_LINK_DOWN, nullptr, 0};
// Tried in order, after the WAN port.
constexpr LinkClass kPortClasses[] = {
    {"LAN", "ETHER", ZNS_EVENT_LAN_LINK_UP, ZNS_EVENT_LAN_LINK_DOWN, kLanPorts, sizeof kLanPorts / sizeof *kLanPorts},
    {"ssid", "SSID", ZNS_EVENT_SSID_LINK_UP, ZNS_EVENT_SSID_LINK_DOWN, kSsidPorts,
     sizeof kSsidPorts / sizeof *kSsidPorts},
};

// 1 from a WAN link up event until the next WAN link down event.
int32_t wanLinkUp;

bool listed(const LinkClass &c, const char *name) {
    for (size_t i = 0; i < c.count; i++)
        if (strcmp(c.ports[i], name) == 0)
            return true;
    return false;
}

void link_event_send(const LinkClass &c, bool running, const char *name) {
    char payload[kIfNameRoom + 8];
    snprintf(payload, sizeof payload, "%s=%s", c.key, name);
    zns_eventNotify(running ? c.up : c.down, ZNS_TYPE_STRING, payload);
}

void handleIfInfoMsg(const char *name, bool running, const char *wanType, const char *wanIfname) {
    ZN_LOG(4, "%s %s", name, running ? "up" : "down");
    const char *state = running ? "Up" : "Down";
    if (strcmp(name, wanIfname) == 0 && strcmp(wanType, kEtherType) == 0) {
        // A down event only after an up event.
        if (running || wanLinkUp == 1)
            link_event_send(kWanClass, running, name);
        wanLinkUp = running ? 1 : 0;
        syslog(LOG_CRIT, "%s %s Link %s", kWanClass.word, name, state);
        return;
    }
    for (const LinkClass &c : kPortClasses) {
        if (listed(c, name)) {
            link_event_send(c, running, name);
            syslog(LOG_CRIT, "%s %s Link %s", c.word, name, state);
            return;
        }
    }
}

void link_handle(const uint8_t *msg, size_t len) {
    char wanType[kIfNameRoom], wanIfname[kIfNameRoom];
    getWanPhysicalTypeAndIfname(wanType, wanIfname);
    LinkMsg m;
    link_parse(msg, len, &m);
    if (m.hasName && m.type == RTM_NEWLINK)
        handleIfInfoMsg(m.name, (m.flags & IFF_RUNNING) != 0, wanType, wanIfname);
}

// The descriptor stays open for the life of the process.
int zn_event_kernel_netlink_sock_init() {
    UniqueFd fd(socket(AF_NETLINK, SOCK_RAW, NETLINK_ROUTE));
    sockaddr_nl addr{};
    addr.nl_family = AF_NETLINK;
    addr.nl_groups = kLinkGroups;
    if (!fd)
        return -1;
    // Forcing needs CAP_NET_ADMIN; without it the kernel's ceiling still
    // beats the old 2048 bytes, and the worker goes on.
    if (fd_rcvbuf_force(fd.get(), kLinkRcvBuf) != 0) {
        ZN_LOG(1, "link socket buffer of %d bytes refused: %s\n", kLinkRcvBuf, strerror(errno));
        if (setsockopt(fd.get(), SOL_SOCKET, SO_RCVBUF, &kLinkRcvBuf, sizeof kLinkRcvBuf) != 0)
            return -1;
    }
    if (bind(fd.get(), reinterpret_cast<sockaddr *>(&addr), sizeof addr) != 0)
        return -1;
    return fd.release();
}

} // namespace

void link_walk(const uint8_t *buf, size_t len, LinkMsgFn fn) {
    netlink_datagram_walk(buf, len, [fn](const nlmsghdr &h, const uint8_t *msg) {
        bool quiet = false;
        for (uint16_t type : kQuietTypes)
            quiet = quiet || h.nlmsg_type == type;
        if (h.nlmsg_type == RTM_NEWLINK || h.nlmsg_type == RTM_DELLINK)
            fn(msg, h.nlmsg_len);
        else if (!quiet)
            ZN_LOG_AS(kernelEventHandler, 0, "nh->nlmsg_type = %d\n", h.nlmsg_type);
    });
}

void link_parse(const uint8_t *msg, size_t len, LinkMsg *out) {
    *out = LinkMsg{};
    ByteCursor c(msg, len);
    nlmsghdr h;
    ifinfomsg info;
    if (!c.take_into(&h))
        return;
    out->type = h.nlmsg_type;
    if (!c.take_into(&info))
        return;
    out->flags = info.ifi_flags;
    rtattr a;
    while (c.left() >= sizeof a) {
        memcpy(&a, c.peek(), sizeof a);
        if (a.rta_len < sizeof a || a.rta_len > c.left())
            return;
        if (a.rta_type == IFLA_IFNAME) {
            out->hasName = true;
            lanhost_copy_text(out->name, reinterpret_cast<const char *>(c.peek() + sizeof a), a.rta_len - sizeof a);
        }
        if (!c.skip(RTA_ALIGN(a.rta_len)))
            return;
    }
}

int link_wan_split(const char *line, char (&type)[kIfNameRoom], char (&ifname)[kIfNameRoom]) {
    type[0] = ifname[0] = '\0';
    ByteCursor rest(line, strlen(line)), field;
    if (!rest.field('=', &field))
        return 0;
    lanhost_copy_text(type, field);
    if (!rest.field('=', &field))
        return 1;
    lanhost_copy_text(ifname, field);
    const size_t n = strlen(ifname);
    if (n > 0 && ifname[n - 1] == '\n')
        ifname[n - 1] = '\0';
    return 2;
}

void getWanPhysicalTypeAndIfname(char (&type)[kIfNameRoom], char (&ifname)[kIfNameRoom]) {
    type[0] = ifname[0] = '\0';
    FILE *f = fopen(kWanPhysicalTypeFile, "r");
    if (!f)
        return;
    char line[kWanLineRoom];
    const int found = fgets(line, sizeof line, f) ? link_wan_split(line, type, ifname) : 0;
    fclose(f);
    if (found > 0)
        ZN_LOG(4, "getWanPhysicalType--%s--\n", type);
    if (found > 1)
        ZN_LOG(4, "getWanPhysicalType--%s--\n", ifname);
}

void *kernelEventHandler(void *) {
    const int fd = zn_event_kernel_netlink_sock_init();
    if (fd < 0)
        return nullptr;
    bool overrun = false; // logged for this burst; a quiet select ends the burst
    for (;;) {
        fd_set readable;
        FD_ZERO(&readable);
        FD_SET(fd, &readable);
        timeval timeout{kSelectSeconds, 0};
        const int ready = select(fd + 1, &readable, nullptr, nullptr, &timeout);
        if (ready < 0)
            perror("kernelEventHandler ");
        overrun = overrun && ready != 0;
        if (ready <= 0)
            continue;
        uint8_t buf[kLinkDatagram] = {};
        const ssize_t n = read(fd, buf, sizeof buf);
        if (n < 0 && errno == ENOBUFS && !overrun) {
            ZN_LOG(1, "link messages lost: the socket's buffer overflowed\n");
            overrun = true;
        }
        if (n >= ssize_t(sizeof(nlmsghdr)))
            link_walk(buf, size_t(n), link_handle);
    }
}
