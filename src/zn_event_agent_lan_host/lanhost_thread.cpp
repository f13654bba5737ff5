// The tracker's thread: its store handle, sockets and timers on one event
// loop, and the timers that belong to no other part of the tracker.
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "agent_log.h"
#include "lanhost.h"
#include "lanhost_ageing.h"
#include "lanhost_arp.h"
#include "lanhost_dhcp.h"
#include "lanhost_icmp6.h"
#include "lanhost_neighbor.h"
#include "lanhost_prefix.h"
#include "lanhost_records.h"
#include "lanhost_sockets.h"
#include "lanhost_useragent.h"
#include "libzn.h"

zns_xml_handle_t *storeHandle;
event_base *lanhostEventBase;
char gatewayBaseMac[kMacTextSize];

namespace {

constexpr const char *kMacAddrBaseFile = "/etc/macAddrBase";
constexpr const char *kLanhostDebugFile = "/tmp/zn_event_agent_lanhost_debug";
uint16_t hostsSaveMark;

struct Timer {
    event_callback_fn cb;
    int seconds;
};

// The periodic timers, in their order of registration.
constexpr Timer kTimers[] = {
    {zn_event_lanhost_macfilter_timer_cb, 5},
    {zn_event_lanhost_macAgeingDetect_timer_cb, 2},
    {zn_event_lanhost_save_flash_timer_cb, 5},
    {zn_event_lanhost_log_level_cb, 5},
};

// The eight sockets, by their order of creation.
enum Socket { kNeighbor, kHttp, kDhcp, kArp, kBridgeDhcp, kIcmpv6, kDhcp6s, kRadvd, kSocketCount };
using Sockets = int[kSocketCount];

struct SocketStep {
    const char *label; // logged just before the socket is made
    int level;
    int (*init)(int *fd);
};

// The set-up calls that also fill in an address, which the loop has no use for.
template <typename Addr, int (*Init)(int *, Addr *)> int without_addr(int *fd) {
    Addr a;
    return Init(fd, &a);
}

constexpr SocketStep kSocketSteps[kSocketCount] = {
    {"neighbor sock", 1, without_addr<sockaddr_nl, zn_event_neighbor_netlink_sock_init>},
    {"http sock", 3, without_addr<sockaddr_nl, zn_event_httpAgent_netlink_sock_init>},
    {"dhcp sock", 3, without_addr<sockaddr_un, zn_event_dhcp_unix_sock_init>},
    {"arp ping sock", 3, zn_event_arpPing_raw_sock_init},
    {"bridge dhcp sock", 3, zn_event_bridge_dhcp_sock_init},
    {"ipv6 icmpv6 sock", 3, zn_event_icmpv6_raw_sock_init},
    {"dhcp6s address socket", 3, without_addr<sockaddr_un, zn_event_dhcp6s_address_sock_init>},
    {"radvd address socket", 3, without_addr<sockaddr_un, zn_event_radvd_address_sock_init>},
};

// The read callbacks, in their order of registration, which is not that of creation.
constexpr struct {
    Socket socket;
    event_callback_fn cb;
} kReads[] = {
    {kNeighbor, zn_event_lanhost_neighbor_read_cb},
    {kArp, zn_event_lanhost_arpreply_read_cb},
    {kHttp, zn_event_lanhost_httpSockRead_cb},
    {kDhcp, zn_event_lanhost_dhcpSockRead_cb},
    {kBridgeDhcp, zn_event_lanhost_bridge_dhcpSockRead_cb},
    {kIcmpv6, zn_event_lanhost_ipv6MulticastSockRead_cb},
    {kDhcp6s, zn_event_lanhost_dhcp6sAddrSockRead_cb},
    {kRadvd, zn_event_lanhost_radvdSockRead_cb},
};

// Creates the sockets in their order; false at the first failure.
bool create_sockets(Sockets &fds) {
    for (int i = 0; i < kSocketCount; i++) {
        LANHOST_LOG_AS(zn_event_lanhost_thread, kSocketSteps[i].level, "%s", kSocketSteps[i].label);
        if (kSocketSteps[i].init(&fds[i]) < 0)
            return false;
    }
    return true;
}

// The events live as long as the loop; nothing removes them.
bool add_events(const Sockets &fds) {
    for (const auto &r : kReads) {
        event *ev = event_new(lanhostEventBase, fds[r.socket], EV_READ | EV_PERSIST, r.cb, nullptr);
        if (!ev || event_add(ev, nullptr) < 0)
            return false;
    }
    for (const Timer &t : kTimers) {
        event *ev = event_new(lanhostEventBase, -1, EV_PERSIST, t.cb, nullptr);
        timeval period{t.seconds, 0};
        if (!ev || event_add(ev, &period) < 0)
            return false;
    }
    return true;
}

} // namespace

int getGatewayBaseMacaddr() {
    FILE *f = fopen(kMacAddrBaseFile, "r");
    if (!f) {
        ZN_LOG(1, "fopen fail\n");
        return -1;
    }
    char text[kMacTextSize - 1];
    const size_t len = fread(text, 1, sizeof text, f);
    fclose(f);
    char mac[kMacTextSize] = "";
    if (!lanhost_base_mac_parse(text, len, mac)) {
        ZN_LOG(4, "--MAC address file is NULL!!\n");
        return -1;
    }
    memcpy(gatewayBaseMac, mac, sizeof mac);
    return 0;
}

bool lanhost_base_mac_parse(const char *text, size_t len, char (&mac)[kMacTextSize]) {
    const size_t most = len < kMacTextSize - 1 ? len : kMacTextSize - 1;
    const auto *end = static_cast<const char *>(memchr(text, '\n', most));
    const size_t n = end ? size_t(end - text) : most;
    lanhost_copy_text(mac, text, n);
    return n > 0;
}

void zn_event_lanhost_save_flash_timer_cb(evutil_socket_t, short, void *) {
    const auto *hosts = static_cast<const uint8_t *>(znsXml_GetObjectByName(storeHandle, kHostsPath, 1));
    if (!hosts) {
        LANHOST_LOG(1, "couldn't get object by %s!!!", kHostsPath);
        return;
    }
    const auto counter = lanhost_field<uint16_t>(hosts, kHostsSaveCounterAt);
    if (counter != hostsSaveMark)
        znsXml_SaveNoReply(storeHandle);
    hostsSaveMark = counter;
}

void zn_event_lanhost_log_level_cb(evutil_socket_t, short, void *) {
    zn_event_lanhost_log_levels[0] = lanhost_debug_level(kLanhostDebugFile, zn_event_lanhost_log_levels[0]);
}

void *zn_event_lanhost_thread(void *) {
    storeHandle = zns_xmlShmInit();
    if (!storeHandle) {
        LANHOST_LOG(1, "XMLSHMINIT init error\n");
        return nullptr;
    }
    if (access(kLanhostDebugFile, F_OK) != 0) {
        if (FILE *f = fopen(kLanhostDebugFile, "w+"))
            fclose(f);
        else
            perror(kLanhostDebugFile);
    }
    zn_event_lanhost_log_init();
    getGatewayBaseMacaddr();
    LANHOST_LOG(1, "enter");
    Sockets sockets;
    if (!create_sockets(sockets) || !(lanhostEventBase = event_base_new()) || !add_events(sockets)) {
        LANHOST_LOG(1, "init fail");
    } else {
        LANHOST_LOG(3, "event_base_dispatch");
        // Forget what the kernel knows of the LAN: every host is then reported
        // anew as its frames pass the bridge.
        libzn_dosystem("echo 1 > /sys/class/net/br0/bridge/flush");
        libzn_dosystem("ip neighbor flush dev br0");
        event_base_dispatch(lanhostEventBase);
    }
    zns_xmlShmDeInit(&storeHandle);
    LANHOST_LOG(1, "exit");
    return nullptr;
}
