// The neighbor socket: the bridge's forwarding entries create and delete
// host records, the neighbor tables give them addresses, and the wireless
// driver's departure message takes a station offline.
#include "lanhost_neighbor.h"

#include <arpa/inet.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <strings.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "agent_log.h"
#include "lanhost.h"
#include "lanhost_ageing.h"
#include "lanhost_arp.h"
#include "lanhost_port.h"
#include "lanhost_read.h"
#include "lanhost_store.h"
#include "netlink_walk.h"
#include "unique_fd.h"

namespace {

// The kinds of attribute value the tracker reads, and the least length of each.
enum AttrKind { kAttrMac, kAttrIpv4, kAttrIpv6, kAttrMaster };
constexpr size_t kAttrLength[] = {6, sizeof(in_addr), sizeof(in6_addr), sizeof(int32_t)};
static_assert(kAttrLength[kAttrIpv4] == 4 && kAttrLength[kAttrIpv6] == 16 && kAttrLength[kAttrMaster] == 4,
              "NDA_DST holds 4 or 16 bytes, NDA_MASTER a 32-bit index");

bool read_attr(const NeighborAttr &a, AttrKind kind, void *out) {
    if (!a.data || a.len < kAttrLength[kind])
        return false;
    memcpy(out, a.data, kAttrLength[kind]);
    return true;
}

struct Name {
    uint16_t value;
    const char *name;
};

constexpr Name kNlmsgTypeNames[] = {
    {RTM_NEWNEIGH, "RTM_NEWNEIGH"},
    {RTM_DELNEIGH, "RTM_DELNEIGH"},
    {31, "RTM_DELNEIGH_FAKE"},
};

constexpr Name kNdmStateNames[] = {
    {NUD_INCOMPLETE, "NUD_INCOMPLETE"}, {NUD_REACHABLE, "NUD_REACHABLE"}, {NUD_STALE, "NUD_STALE"},
    {NUD_DELAY, "NUD_DELAY"},           {NUD_PROBE, "NUD_PROBE"},         {NUD_FAILED, "NUD_FAILED"},
};

template <size_t N> const char *name_of(const Name (&names)[N], uint16_t value) {
    for (const Name &n : names)
        if (n.value == value)
            return n.name;
    return "";
}

constexpr uint16_t kWalkedTypes[] = {RTM_NEWNEIGH, RTM_DELNEIGH, kWlanLeaveMsgType};

// Ports whose hosts are tracked, and the marks of a wireless port.
constexpr const char *kLanPortPrefixes[] = {"eth", "lan", "ra", "wlan"};
constexpr const char *kWirelessMarks[] = {"ra", "wlan"};

template <size_t N> bool begins_with_any(const char *text, const char *const (&prefixes)[N]) {
    for (const char *p : prefixes)
        if (strncmp(text, p, strlen(p)) == 0)
            return true;
    return false;
}

template <size_t N> bool contains_any(const char *text, const char *const (&marks)[N]) {
    for (const char *m : marks)
        if (strstr(text, m))
            return true;
    return false;
}

constexpr const char kGatewayLanAddress[] = "192.168.1.1";
constexpr const char kGatewayLinkLocal[] = "fe80::1";
constexpr const char kBrctlShowmacs[] = "brctl showmacs br0 ";
constexpr const char kLanEthMacfilterTable[] = "/tmp/LanEthmacfilter_table";

// Text forms of the attributes; empty when the attribute is absent or short.
void mac_text(const NeighborAttr &a, char (&text)[kMacTextSize]) {
    uint8_t mac[6];
    text[0] = '\0';
    if (lanhost_attr_mac(a, mac))
        lanhost_mac_text(mac, true, text);
}

void ipv4_text(const NeighborAttr &a, char (&text)[kIpv4TextSize]) {
    in_addr addr;
    text[0] = '\0';
    if (lanhost_attr_ipv4(a, &addr))
        lanhost_ipv4_text(reinterpret_cast<const uint8_t *>(&addr), text);
}

void ipv6_text(const NeighborAttr &a, char (&text)[INET6_ADDRSTRLEN]) {
    in6_addr addr;
    text[0] = '\0';
    if (lanhost_attr_ipv6(a, &addr))
        inet_ntop(AF_INET6, &addr, text, sizeof text);
}

// ndm_state is one state; true when it is one of those in states.
constexpr uint16_t kAnyState = 0xFFFF;
bool state_in(uint16_t states, uint16_t state) {
    return states == kAnyState || (state != 0 && (state & (state - 1)) == 0 && (states & state) != 0);
}

void log_neighbor(const char *family, const NeighborMsg &m, bool v6) {
    char mac[kMacTextSize], ip[INET6_ADDRSTRLEN];
    mac_text(m.attr[NDA_LLADDR], mac);
    if (v6) {
        ipv6_text(m.attr[NDA_DST], ip);
    } else {
        char v4[kIpv4TextSize];
        ipv4_text(m.attr[NDA_DST], v4);
        lanhost_copy_text(ip, v4);
    }
    LANHOST_LOG_AS(netlink_neighborMsg_handle, 3, "%s,ndm->ndm_state=%d(%s) ip=%s mac=%s", family, m.state,
                   netlink_ndmState_name(m.state), ip, mac);
}

void route_layer2(const NeighborMsg &m) { netlink_layer2_neighborMsg_parse(m.attr, m.ifindex, m.type); }

void route_ipv4(const NeighborMsg &m) {
    log_neighbor("AF_INET", m, false);
    netlink_layer3_neighborMsg_parse(m.attr, m.type);
}

void route_ipv6(const NeighborMsg &m) { netlink_layer3_ipv6NeighborMsg_parse(m.attr, m.type); }

struct Route {
    uint8_t family;
    uint16_t type;
    uint16_t states;
    void (*run)(const NeighborMsg &);
};

// Deletions of IPv4 and IPv6 neighbors change no host: a host leaves only
// through the bridge, a probe time-out or the wireless message.
constexpr Route kRoutes[] = {
    {AF_BRIDGE, RTM_NEWNEIGH, kAnyState, route_layer2},
    {AF_BRIDGE, RTM_DELNEIGH, kAnyState, route_layer2},
    {AF_INET, RTM_NEWNEIGH, NUD_REACHABLE, route_ipv4},
    {AF_INET6, RTM_NEWNEIGH, NUD_REACHABLE | NUD_STALE, route_ipv6},
};

// What an AF_BRIDGE message tells once the interfaces are looked up.
struct BridgeReport {
    char mac[kMacTextSize];
    uint8_t macBytes[6];
    char brName[IFNAMSIZ];
    char brPortName[IFNAMSIZ];
    char portMac[kMacTextSize];
};

// The name of an interface index; empty when it can't be looked up.
void interface_name(int s, int32_t index, char (&name)[IFNAMSIZ]) {
    ifreq ifr;
    memset(&ifr, 0, sizeof ifr);
    ifr.ifr_ifindex = index;
    if (ioctl(s, SIOCGIFNAME, &ifr) < 0) {
        LANHOST_LOG_AS(netlink_layer2_neighborMsg_parse, 1, "ioctl fail: %s\n", strerror(errno));
        return;
    }
    lanhost_copy_text(name, ifr.ifr_name, IFNAMSIZ);
}

void interface_mac_text(int s, const char *name, char (&text)[kMacTextSize]) {
    ifreq ifr;
    memset(&ifr, 0, sizeof ifr);
    lanhost_copy_text(ifr.ifr_name, name);
    if (ioctl(s, SIOCGIFHWADDR, &ifr) < 0) {
        LANHOST_LOG_AS(netlink_layer2_neighborMsg_parse, 1, "ioctl fail: %s\n", strerror(errno));
        return;
    }
    lanhost_mac_text(reinterpret_cast<const uint8_t *>(ifr.ifr_hwaddr.sa_data), true, text);
}

// The blank-separated columns of a line, as many as columns holds; those
// the line lacks stay empty.
template <size_t N> void line_columns(const char *line, ByteCursor (&columns)[N]) {
    ByteCursor rest(line, strlen(line));
    for (ByteCursor &c : columns)
        if (!rest.field(' ', &c))
            break;
}

// Whether the two texts are equal regardless of case, the first a column.
bool column_is(const ByteCursor &column, const char *text) {
    return column.left() == strlen(text) && strncasecmp(column.text(), text, column.left()) == 0;
}

// The fifth column of the line of "brctl showmacs" that names mac.
void brctl_fifth_column(const char *mac, char (&fifth)[kMacfilterLine]) {
    fifth[0] = '\0';
    FILE *p = popen(kBrctlShowmacs, "r");
    if (!p)
        return;
    char line[kMacfilterLine];
    while (fgets(line, sizeof line, p)) {
        ByteCursor column[5];
        line_columns(line, column);
        if (column_is(column[1], mac)) {
            lanhost_copy_text(fifth, column[4]);
            break;
        }
    }
    pclose(p);
}

bool macfilter_stat_names(const char *mac) {
    FILE *f = lanhost_macfilter_stat_open();
    if (!f)
        return false;
    char statMac[kMacfilterLine];
    int count;
    bool named = false;
    while (!named && lanhost_macfilter_stat_next(f, statMac, &count))
        named = strcasecmp(statMac, mac) == 0;
    fclose(f);
    return named;
}

// Whether the wired filter table has a line "MAC - PORT" for mac on the port
// that "brctl showmacs" gives it in its fifth column. The command runs only
// once the table has opened: without the table its column can't change the
// class, and each run is a child process that the tracker waits for.
bool lan_eth_macfilter_names(const char *mac) {
    FILE *f = fopen(kLanEthMacfilterTable, "r");
    if (!f)
        return false;
    char port[kMacfilterLine];
    brctl_fifth_column(mac, port);
    char line[kMacfilterLine];
    bool named = false;
    while (port[0] && !named && fgets(line, sizeof line, f))
        named = lanhost_macfilter_line_names(line, mac, port);
    fclose(f);
    return named;
}

} // namespace

bool lanhost_macfilter_line_names(const char *line, const char *mac, const char *port) {
    ByteCursor column[3];
    line_columns(line, column);
    return column_is(column[0], mac) && column_is(column[2], port);
}

namespace {

// The stat file is read first: a MAC it names is filtered whatever the
// wired table says, so the table and the command are not needed then.
void macfilter_classify(lhost *host) {
    if (macfilter_stat_names(host->macAddr) || lan_eth_macfilter_names(host->macAddr))
        lanhost_macfilter_notify(host, kMacfilterFiltered);
    else if (!begins_with_any(host->brPortName, kWirelessMarks))
        lanhost_macfilter_notify(host, kMacfilterNewWired);
}

// A wireless station that has left: its addresses go, and the store shows it
// offline on both families.
void wlan_host_offline(lhost *host) {
    host->ipAddr[0] = '\0';
    wrapperZns_lanhost_set_offline(host);
    wrapperZns_lanhostIPv6_set_offline(host);
    host->ipv6Addr[0] = '\0';
    wrapperZns_lanhostIPv6_delete(host->mac);
}

void layer2_add(const BridgeReport &r) {
    lhost *host = list_find_lhost(r.mac);
    if (host && strcmp(host->brPortName, r.brPortName) != 0) {
        LANHOST_LOG_AS(netlink_layer2_neighborMsg_parse, 3, "Port Changed! from %s to %s", host->brPortName,
                       r.brPortName);
        lanhost_copy_text(host->brPortName, r.brPortName);
        wrapperZns_lanhost_update_Layer2Interface(host);
    } else if (!host) {
        host = list_init_add_lhost();
        if (!host)
            return;
        memcpy(host->mac, r.macBytes, sizeof host->mac);
        lanhost_copy_text(host->macAddr, r.mac);
        lanhost_copy_text(host->brName, r.brName);
        lanhost_copy_text(host->brPortName, r.brPortName);
        host->active = 1;
        macfilter_classify(host);
    }
    // A new host has no address yet, so its first probe stops at once.
    if (wrapperZns_lanhost_l2Interface_is_bridge(host) == 1) {
        LANHOST_LOG_AS(netlink_layer2_neighborMsg_parse, 3, "Bridge, macAddr=%s", host->macAddr);
        zn_event_lanhost_arpping(host);
    }
}

void layer2_delete(const BridgeReport &r) {
    lhost *host = list_find_lhost(r.mac);
    if (!host)
        return;
    if (begins_with_any(host->brPortName, kWirelessMarks)) {
        LANHOST_LOG_AS(netlink_layer2_neighborMsg_parse, 3, "wlan dev offline macAddr=%s", host->macAddr);
        wlan_host_offline(host);
    } else {
        lanhost_macfilter_notify(host, kMacfilterWiredDeleted);
    }
    LANHOST_LOG_AS(netlink_layer2_neighborMsg_parse, 3, "set offline and delet lhost macAddr=%s", host->macAddr);
    wrapperZns_lanhost_set_offline(host);
    wrapperZns_lanhostIPv6_set_offline(host);
    list_del_lhost(host);
}

// Where a neighbor's IPv6 address of one kind is kept, and how it is told.
struct Ipv6Slot {
    char (lhost::*field)[sizeof(lhost::ipv6Addr)];
    int scope;
    const char *changed;
    const char *unchanged;
};

} // namespace

bool lanhost_attr_mac(const NeighborAttr &a, uint8_t (&out)[6]) { return read_attr(a, kAttrMac, out); }
bool lanhost_attr_ipv4(const NeighborAttr &a, in_addr *out) { return read_attr(a, kAttrIpv4, out); }
bool lanhost_attr_ipv6(const NeighborAttr &a, in6_addr *out) { return read_attr(a, kAttrIpv6, out); }
bool lanhost_attr_master(const NeighborAttr &a, int32_t *out) { return read_attr(a, kAttrMaster, out); }

const char *netlink_nlmsgType_name(uint16_t type) { return name_of(kNlmsgTypeNames, type); }

const char *netlink_ndmState_name(uint16_t state) { return name_of(kNdmStateNames, state); }

void zn_event_lanhost_neighbor_read_cb(evutil_socket_t fd, short, void *) {
    uint8_t buf[kNeighborDatagram];
    const ssize_t n = lanhost_read_once(fd, buf, sizeof buf, {ReadFailure::kPlain});
    if (n >= 0)
        lanhost_neighbor_walk(buf, size_t(n), lanhost_neighbor_dispatch);
    else if (errno == ENOBUFS) // the kernel dropped reports: their hosts get no record until re-learnt
        LANHOST_LOG(1, "neighbor socket overflow: bridge and neighbour reports were lost\n");
}

void lanhost_neighbor_walk(const uint8_t *buf, size_t len, NeighborMsgFn fn) {
    netlink_datagram_walk(buf, len, [fn](const nlmsghdr &h, const uint8_t *msg) {
        for (uint16_t type : kWalkedTypes)
            if (h.nlmsg_type == type)
                fn(type, msg, h.nlmsg_len);
    });
}

void lanhost_neighbor_dispatch(uint16_t type, const uint8_t *msg, size_t len) {
    if (type == kWlanLeaveMsgType)
        netlink_wlan_neighborMsg_handle(msg, len);
    else
        netlink_neighborMsg_handle(msg, len);
}

Parse lanhost_neighbor_parse(const uint8_t *msg, size_t len, NeighborMsg *out) {
    *out = NeighborMsg{};
    ByteCursor c(msg, len);
    nlmsghdr h;
    ndmsg nd;
    if (!c.take_into(&h) || !c.take_into(&nd))
        return Parse::kTooShort;
    out->type = h.nlmsg_type;
    out->family = nd.ndm_family;
    out->ifindex = nd.ndm_ifindex;
    out->state = nd.ndm_state;
    rtattr a;
    while (c.left() >= sizeof a) {
        memcpy(&a, c.peek(), sizeof a);
        if (a.rta_len < sizeof a || a.rta_len > c.left())
            break;
        if (a.rta_type < kNdaTableSize)
            out->attr[a.rta_type] = NeighborAttr{c.peek() + sizeof a, size_t(a.rta_len - sizeof a)};
        if (!c.skip(RTA_ALIGN(a.rta_len)))
            break;
    }
    return Parse::kOk;
}

Parse lanhost_wlan_leave_text(const uint8_t *msg, size_t len, char (&text)[kMacTextSize]) {
    ByteCursor c(msg, len);
    text[0] = '\0';
    if (!c.skip(sizeof(nlmsghdr)))
        return Parse::kTooShort;
    return lanhost_copy_text(text, c.text(), c.left()) ? Parse::kOk : Parse::kTooLong;
}

int netlink_neighborMsg_handle(const uint8_t *msg, size_t len) {
    NeighborMsg m;
    if (lanhost_neighbor_parse(msg, len, &m) != Parse::kOk)
        return 0;
    if (m.family == AF_INET6)
        log_neighbor("AF_INET6", m, true);
    for (const Route &r : kRoutes) {
        if (r.family == m.family && r.type == m.type && state_in(r.states, m.state)) {
            r.run(m);
            break;
        }
    }
    return 0;
}

int netlink_layer2_neighborMsg_parse(const NeighborAttr *attrs, int32_t ifindex, uint16_t nlmsgType) {
    const UniqueFd s(socket(AF_INET, SOCK_DGRAM, 0));
    if (!s) {
        LANHOST_LOG(1, "socket fail: %s\n", strerror(errno));
        return -1;
    }
    BridgeReport r{};
    if (lanhost_attr_mac(attrs[NDA_LLADDR], r.macBytes))
        lanhost_mac_text(r.macBytes, true, r.mac);
    int32_t master;
    if (lanhost_attr_master(attrs[NDA_MASTER], &master))
        interface_name(s.get(), master, r.brName);
    if (ifindex != -1)
        interface_name(s.get(), ifindex, r.brPortName);
    if (contains_any(r.brPortName, kWirelessMarks))
        interface_mac_text(s.get(), r.brPortName, r.portMac);

    if (r.mac[0] && strcmp(r.mac, gatewayBaseMac) == 0) {
        LANHOST_LOG(4, "local mac address, return");
        return 0;
    }
    if (!begins_with_any(r.brPortName, kLanPortPrefixes)) {
        LANHOST_LOG(4, "mac address not from Ethernet port nor wlan ssid, return");
        return 0;
    }
    if (r.mac[0] && r.portMac[0] && strcasecmp(r.mac, r.portMac) == 0) {
        LANHOST_LOG(4, "this mac %s is the interface mac of %s, return", r.mac, r.brPortName);
        return 0;
    }
    LANHOST_LOG(3, "AF_BRIDGE");
    LANHOST_LOG(3, "nlmsgType=%s macAddr:%s brName:%s brPortName:%s", netlink_nlmsgType_name(nlmsgType), r.mac,
                r.brName, r.brPortName);
    if (!r.mac[0])
        return 0;
    if (nlmsgType == RTM_NEWNEIGH)
        layer2_add(r);
    else if (nlmsgType == RTM_DELNEIGH)
        layer2_delete(r);
    return 0;
}

int netlink_layer3_neighborMsg_parse(const NeighborAttr *attrs, uint16_t) {
    constexpr Name kNoticed[] = {{NDA_IFINDEX, "NDA_IFINDEX"}, {NDA_PORT, "NDA_PORT"}, {NDA_MASTER, "NDA_MASTER"}};
    for (const Name &n : kNoticed)
        if (attrs[n.value].data)
            LANHOST_LOG(1, "%s", n.name);
    char mac[kMacTextSize], ip[kIpv4TextSize];
    mac_text(attrs[NDA_LLADDR], mac);
    ipv4_text(attrs[NDA_DST], ip);
    if (!mac[0] || !ip[0])
        return 0;
    lhost *host = list_find_lhost(mac);
    if (!host) {
        LANHOST_LOG(3, "MAC:%s ip=%s not in lhost list", mac, ip);
        return 0;
    }
    if (!begins_with_any(host->brPortName, kLanPortPrefixes)) {
        LANHOST_LOG(4, "mac address not from Ethernet port nor wlan ssid, return");
        return 0;
    }
    // The fixed LAN address, not the configured one.
    if (strcmp(ip, kGatewayLanAddress) == 0)
        return 0;
    // Every report is passed on, changed or not: that brings an offline host back.
    host->active = 1;
    lanhost_copy_text(host->ipAddr, ip);
    wrapperZns_lanhost_update(host->mac, host->ipAddr, AF_INET, 0);
    return 0;
}

int netlink_layer3_ipv6NeighborMsg_parse(const NeighborAttr *attrs, uint16_t nlmsgType) {
    static constexpr Ipv6Slot kGlobal = {&lhost::ipv6Addr, kIpv6ScopeGlobal, "ipV6 change or new online\n",
                                         "ipv6 not change or no new online\n"};
    static constexpr Ipv6Slot kLinkLocal = {&lhost::ipv6LocalAddr, kIpv6ScopeLink,
                                            "ipV6 link local addr change or new online\n",
                                            "ipV6 link local not change or no new online\n"};
    if (nlmsgType != RTM_NEWNEIGH)
        return 0;
    char mac[kMacTextSize], ip[INET6_ADDRSTRLEN];
    mac_text(attrs[NDA_LLADDR], mac);
    ipv6_text(attrs[NDA_DST], ip);
    LANHOST_LOG(3, "!!!!!!macAddr=%s,ipAddr=%s\n", mac, ip);
    if (ip[0] && strcmp(ip, kGatewayLinkLocal) == 0)
        return 0;
    in6_addr addr{};
    lanhost_attr_ipv6(attrs[NDA_DST], &addr); // without one, the unspecified address
    const uint32_t type = lhost_ipv6_addr_type(addr.s6_addr);
    const Ipv6Slot *slot = lanhost_ipv6_is_global(type)       ? &kGlobal
                           : lanhost_ipv6_is_link_local(type) ? &kLinkLocal
                                                              : nullptr;
    if (!slot) {
        LANHOST_LOG(3, "not global ipv6address\n");
        return 0;
    }
    if (!mac[0] || !ip[0])
        return 0;
    lhost *host = list_find_lhost(mac);
    if (host && strcmp(host->*(slot->field), ip) != 0) {
        LANHOST_LOG(3, "%s", slot->changed);
        lanhost_copy_text(host->*(slot->field), ip);
        wrapperZns_lanhost_update(host->mac, host->*(slot->field), AF_INET6, slot->scope);
    } else {
        LANHOST_LOG(3, "%s", slot->unchanged);
    }
    return 0;
}

int netlink_wlan_neighborMsg_handle(const uint8_t *msg, size_t len) {
    char text[kMacTextSize];
    // A text longer than a MAC text names no record.
    const Parse check = lanhost_wlan_leave_text(msg, len, text);
    if (!text[0])
        return 0;
    LANHOST_LOG(3, "wlan dev offline macAddr=%s", text);
    lhost *host = check == Parse::kOk ? list_find_lhost(text) : nullptr;
    if (host)
        wlan_host_offline(host);
    return 0;
}

int wrapperZns_lanhost_update_Layer2Interface(lhost *host) {
    const auto *object = static_cast<const uint8_t *>(wrapperZns_get_lanhost_byMac(host->mac));
    if (!object) {
        LANHOST_LOG(1, "not find zns host");
        return 0;
    }
    const uint32_t offset = znsXmlGetPtrOffset(storeHandle, object);
    zns_param_list_t *list = newParameterList();
    if (!list)
        return 0;
    wrapperZns_lanhost_get_l2Interface(host->brPortName, host->Layer2Interface, host->interfacetype, &host->devtype);
    int32_t devtype = 0;
    wrapperZns_get_devtype_by_tempMactable(host->macAddr, &devtype);
    host->devtype = devtype;
    const uint32_t uptime = lanhost_uptime();
    setParameterToList(list, "StartUptime", ZNS_TYPE_UINT32, &uptime);
    const auto *stored = reinterpret_cast<const char *>(object + kHostLayer2InterfaceAt);
    if (host->Layer2Interface[0] && strcmp(host->Layer2Interface, stored) != 0) {
        setParameterToList(list, "Layer2Interface", ZNS_TYPE_STRING, host->Layer2Interface);
        LANHOST_LOG(4, "set Layer2Interface=%s", host->Layer2Interface);
        setParameterToList(list, "InterfaceType", ZNS_TYPE_STRING, host->interfacetype);
        LANHOST_LOG(4, "set InterfaceType=%s", host->interfacetype);
    }
    znsXml_setParameterIndirectByParaList(storeHandle, offset, list);
    freeParameterList(list);
    return 0;
}
