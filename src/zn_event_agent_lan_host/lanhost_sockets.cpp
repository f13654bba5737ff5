// The tracker's eight sockets, each bound where its peer expects it.
#include "lanhost_sockets.h"

#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "agent_log.h"
#include "lanhost.h"
#include "lanhost_bpf.h"
#include "lanhost_useragent.h"
#include "unique_fd.h"

namespace {

constexpr const char *kLeaseTimeSocket = "/tmp/leasetime_unix";
constexpr const char *kDhcp6sAddressSocket = "/tmp/dhcp6sAddress_unix";
constexpr const char *kRadvdPrefixSocket = "/tmp/radvdprefix_unix";
// Set in the neighbor socket's port id, beside the process id.
constexpr uint32_t kNeighborPortIdTag = 0x640000;
constexpr uint16_t kBootpServerPort = 67; // RFC 2131, section 4.1
// Room for the bridge's reports of a burst of thousands of new MACs (the
// kernel doubles the figure; a report takes some 800 bytes of it), read
// while the tracker runs a command per new MAC: without it about 250 fit
// and the rest are lost for good.
constexpr int kNeighborRcvBuf = 2048000;

// The helpers' lines carry the name of the initialiser that calls them.
int netlink_sock_init(int *fd, sockaddr_nl *addr, int protocol, uint32_t port_id, uint32_t groups,
                      const char *caller = __builtin_FUNCTION()) {
    memset(addr, 0, sizeof *addr);
    addr->nl_family = AF_NETLINK;
    addr->nl_pid = port_id;
    addr->nl_groups = groups;
    UniqueFd s(socket(AF_NETLINK, SOCK_RAW, protocol));
    if (!s) {
        LANHOST_LOG_FOR(caller, 1, "socket fail:%s", strerror(errno));
        return -1;
    }
    if (bind(s.get(), reinterpret_cast<sockaddr *>(addr), sizeof *addr) < 0) {
        LANHOST_LOG_FOR(caller, 1, "bind fail");
        return -1;
    }
    *fd = s.release();
    return 0;
}

int unix_dgram_sock_init(int *fd, sockaddr_un *addr, const char *path, const char *caller = __builtin_FUNCTION()) {
    memset(addr, 0, sizeof *addr);
    addr->sun_family = AF_UNIX;
    lanhost_copy_text(addr->sun_path, path);
    UniqueFd s(socket(AF_UNIX, SOCK_DGRAM, 0));
    if (!s) {
        LANHOST_LOG_FOR(caller, 1, "socket fail:%s", strerror(errno));
        return -1;
    }
    unlink(path); // a file left by an earlier run would refuse the bind
    if (bind(s.get(), reinterpret_cast<sockaddr *>(addr), sizeof *addr) < 0) {
        LANHOST_LOG_FOR(caller, 1, "bind fail");
        return -1;
    }
    *fd = s.release();
    return 0;
}

// A packet socket on the bridge that sees only what the filter lets through.
template <size_t N>
int packet_sock_init(int *fd, uint16_t protocol, const sock_filter (&filter)[N], const char *bind_failure,
                     const char *caller = __builtin_FUNCTION()) {
    UniqueFd s(socket(AF_PACKET, SOCK_RAW, htons(protocol)));
    if (!s) {
        LANHOST_LOG_FOR(caller, 1, "socket fail");
        return -1;
    }
    sock_fprog prog{N, const_cast<sock_filter *>(filter)};
    if (setsockopt(s.get(), SOL_SOCKET, SO_ATTACH_FILTER, &prog, sizeof prog) < 0) {
        LANHOST_LOG_FOR(caller, 1, "failed to attach filter rule");
        return -1;
    }
    // A fresh request for each query, as the driver may write any of it.
    auto query = [&s](unsigned long request, ifreq *ifr) {
        memset(ifr, 0, sizeof *ifr);
        lanhost_copy_text(ifr->ifr_name, kLanBridge);
        return ioctl(s.get(), request, ifr) >= 0;
    };
    ifreq index, hwaddr;
    if (!query(SIOCGIFINDEX, &index) || !query(SIOCGIFHWADDR, &hwaddr)) {
        LANHOST_LOG_FOR(caller, 1, "ioctl fail");
        return -1;
    }
    sockaddr_ll sll;
    memset(&sll, 0, sizeof sll);
    sll.sll_family = AF_PACKET;
    sll.sll_ifindex = index.ifr_ifindex;
    sll.sll_halen = ETH_ALEN;
    memcpy(sll.sll_addr, hwaddr.ifr_hwaddr.sa_data, ETH_ALEN);
    if (bind(s.get(), reinterpret_cast<sockaddr *>(&sll), sizeof sll) < 0) {
        LANHOST_LOG_FOR(caller, 1, "%s", bind_failure);
        return -1;
    }
    *fd = s.release();
    return 0;
}

} // namespace

int zn_event_neighbor_netlink_sock_init(int *fd, sockaddr_nl *addr) {
    if (netlink_sock_init(fd, addr, NETLINK_ROUTE, uint32_t(getpid()) | kNeighborPortIdTag, RTMGRP_NEIGH) < 0)
        return -1;
    if (fd_rcvbuf_force(*fd, kNeighborRcvBuf) < 0)
        LANHOST_LOG(1, "neighbor socket buffer of %d bytes refused: %s", kNeighborRcvBuf, strerror(errno));
    return 0;
}

int zn_event_httpAgent_netlink_sock_init(int *fd, sockaddr_nl *addr) {
    lanhost_ua_module_cmd("insmod");
    if (netlink_sock_init(fd, addr, kHttpAgentProtocol, uint32_t(getpid()), 0) < 0)
        return -1;
    if (lanhost_ua_greet(*fd) < 0) {
        LANHOST_LOG(1, "malloc nlmsghdr failed!\n");
        return -1;
    }
    list_reset_dhcpRequestEntry();
    return 0;
}

int zn_event_dhcp_unix_sock_init(int *fd, sockaddr_un *addr) {
    return unix_dgram_sock_init(fd, addr, kLeaseTimeSocket);
}

int zn_event_dhcp6s_address_sock_init(int *fd, sockaddr_un *addr) {
    return unix_dgram_sock_init(fd, addr, kDhcp6sAddressSocket);
}

int zn_event_radvd_address_sock_init(int *fd, sockaddr_un *addr) {
    return unix_dgram_sock_init(fd, addr, kRadvdPrefixSocket);
}

int zn_event_arpPing_raw_sock_init(int *fd) {
    return packet_sock_init(fd, ETHERTYPE_ARP, lanhost_bpf::kArp, "ioctl fail");
}

int zn_event_icmpv6_raw_sock_init(int *fd) {
    return packet_sock_init(fd, ETHERTYPE_IPV6, lanhost_bpf::kNeighborAdvert, "createIpv6Socket bind error");
}

int zn_event_bridge_dhcp_sock_init(int *fd) {
    UniqueFd s(socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP));
    if (!s) {
        LANHOST_LOG(1, "socket fail:%s", strerror(errno));
        return -1;
    }
    int one = 1;
    if (setsockopt(s.get(), SOL_SOCKET, SO_REUSEADDR, &one, sizeof one) < 0) {
        LANHOST_LOG(1, "setsockopt fail:%s", strerror(errno));
        return -1;
    }
    sockaddr_in sin;
    memset(&sin, 0, sizeof sin);
    sin.sin_family = AF_INET;
    sin.sin_port = htons(kBootpServerPort);
    if (bind(s.get(), reinterpret_cast<sockaddr *>(&sin), sizeof sin) < 0) {
        LANHOST_LOG(1, "bind fail:%s", strerror(errno));
        return -1;
    }
    *fd = s.release();
    return 0;
}
