// The neighbour socket's messages against the host table and the store:
// a valid message changed one field at a time.
#include <gtest/gtest.h>
#include <arpa/inet.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <net/if.h>

#include <functional>
#include <string>
#include <vector>

#include "lanhost.h"
#include "lanhost_arp.h"
#include "lanhost_neighbor.h"
#include "lanhost_store.h"
#include "shell.h"

using zntest::sh;

namespace {

constexpr const char *kMac = "02:00:00:00:51:01";
constexpr const char *kPortMac = "02:00:00:00:5A:00"; // the MAC of port ra0 itself

std::vector<uint8_t> bytes_of(const void *p, size_t n) {
    auto *b = static_cast<const uint8_t *>(p);
    return {b, b + n};
}

std::vector<uint8_t> mac_bytes(const char *text) {
    uint8_t mac[6];
    macStr_to_bytes(mac, text);
    return bytes_of(mac, 6);
}

std::vector<uint8_t> addr_bytes(int family, const char *text) {
    uint8_t a[16];
    EXPECT_EQ(inet_pton(family, text, a), 1) << text;
    return bytes_of(a, family == AF_INET ? 4 : 16);
}

int32_t index_of(const char *port) { return int32_t(if_nametoindex(port)); }

// One neighbour message, field by field.
struct Neigh {
    uint16_t type = RTM_NEWNEIGH;
    uint8_t family = AF_BRIDGE;
    int32_t ifindex = 0;
    uint16_t state = NUD_REACHABLE;
    std::vector<std::pair<uint16_t, std::vector<uint8_t>>> attrs;
    int lenDelta = 0;      // added to nlmsg_len
    int firstRtaLen = -1;  // in place of the first attribute's own length

    std::vector<uint8_t> bytes() const {
        std::vector<uint8_t> m(28, 0);
        for (const auto &[type, data] : attrs) {
            const uint16_t len = m.size() == 28 && firstRtaLen >= 0 ? uint16_t(firstRtaLen) : uint16_t(4 + data.size());
            m.insert(m.end(), {uint8_t(len), uint8_t(len >> 8), uint8_t(type), uint8_t(type >> 8)});
            m.insert(m.end(), data.begin(), data.end());
            m.resize(RTA_ALIGN(m.size()));
        }
        const uint32_t len = uint32_t(int(m.size()) + lenDelta);
        memcpy(&m[0], &len, 4);
        memcpy(&m[4], &type, 2);
        m[16] = family;
        memcpy(&m[20], &ifindex, 4);
        memcpy(&m[24], &state, 2);
        return m;
    }
};

void walk(const std::vector<uint8_t> &datagram) {
    lanhost_neighbor_walk(datagram.data(), datagram.size(), lanhost_neighbor_dispatch);
}

Neigh bridge_entry(const char *mac, const char *port, uint16_t type = RTM_NEWNEIGH) {
    Neigh n;
    n.type = type;
    n.ifindex = index_of(port);
    const int32_t bridge = index_of("br0");
    n.attrs = {{NDA_LLADDR, mac_bytes(mac)}, {NDA_MASTER, bytes_of(&bridge, 4)}};
    return n;
}

Neigh neighbour(int family, const char *addr, const char *mac = kMac) {
    Neigh n;
    n.family = uint8_t(family);
    n.attrs = {{NDA_DST, addr_bytes(family, addr)}, {NDA_LLADDR, mac_bytes(mac)}};
    return n;
}

const char *stored_text(const char *mac, size_t at) {
    auto *obj = static_cast<const char *>(wrapperZns_get_lanhost_byMac(mac_bytes(mac).data()));
    return obj ? obj + at : "(no Host object)";
}

} // namespace

class Neighbor : public testing::Test {
protected:
    static void SetUpTestSuite() {
        ASSERT_EQ(sh("[ -e /sys/class/net/br0 ] || vgw lan up").status, 0);
        for (const char *port : {"eth1", "eth2", "ppp0", "wlan0.1", "ethra1"})
            ASSERT_EQ(sh(std::string("ip link add ") + port + " type veth peer name p-" + port).status, 0) << port;
        ASSERT_EQ(sh("ip link add ra0 address 02:00:00:00:5a:00 type veth peer name p-ra0").status, 0);
        storeHandle = zns_xmlShmInit();
        lanhostEventBase = event_base_new();
        ASSERT_TRUE(storeHandle && lanhostEventBase);
    }
    void SetUp() override { lanhost_copy_text(gatewayBaseMac, "02:00:00:00:00:01"); }
    void TearDown() override {
        while (hostListHead)
            list_del_lhost(hostListHead);
    }
    static lhost *host_on(const char *port, const char *mac = kMac) {
        walk(bridge_entry(mac, port).bytes());
        return list_find_lhost(mac);
    }
};

TEST_F(Neighbor, BridgeEntryCreatesAHostOnlyWhenEveryFieldPasses) {
    struct Case {
        const char *what;
        std::function<void(Neigh &)> change;
        bool created;
    } cases[] = {
        {"valid", [](Neigh &) {}, true},
        {"any state", [](Neigh &n) { n.state = 0; }, true},
        {"no master", [](Neigh &n) { n.attrs.pop_back(); }, true},
        {"wireless port", [](Neigh &n) { n.ifindex = index_of("wlan0.1"); }, true},
        {"ra port, not its own MAC", [](Neigh &n) { n.ifindex = index_of("ra0"); }, true},
        {"eth port holding ra", [](Neigh &n) { n.ifindex = index_of("ethra1"); }, true},
        {"family", [](Neigh &n) { n.family = 99; }, false},
        {"type", [](Neigh &n) { n.type = RTM_GETNEIGH; }, false},
        {"port ppp0", [](Neigh &n) { n.ifindex = index_of("ppp0"); }, false},
        {"no port", [](Neigh &n) { n.ifindex = -1; }, false},
        {"port gone", [](Neigh &n) { n.ifindex = 99999; }, false},
        {"gateway MAC", [](Neigh &n) { n.attrs[0].second = mac_bytes("02:00:00:00:00:01"); }, false},
        {"port's own MAC", [](Neigh &n) { n.ifindex = index_of("ra0"), n.attrs[0].second = mac_bytes(kPortMac); },
         false},
        {"no MAC", [](Neigh &n) { n.attrs.erase(n.attrs.begin()); }, false},
        {"short MAC", [](Neigh &n) { n.attrs[0].second.pop_back(); }, false},
        {"damaged attribute list", [](Neigh &n) { n.firstRtaLen = 3; }, false},
        {"length beyond the datagram", [](Neigh &n) { n.lenDelta = 4; }, false},
        {"length below a header", [](Neigh &n) { n.lenDelta = -int(n.bytes().size()) + 15; }, false},
        {"no ndmsg", [](Neigh &n) { n.attrs.clear(), n.lenDelta = -4; }, false},
    };
    for (const Case &c : cases) {
        Neigh n = bridge_entry(kMac, "eth1");
        c.change(n);
        walk(n.bytes());
        lhost *h = list_find_lhost(kMac);
        EXPECT_EQ(h != nullptr, c.created) << c.what;
        if (h && std::string(c.what) == "valid") {
            EXPECT_STREQ(h->macAddr, kMac);
            EXPECT_STREQ(h->brName, "br0");
            EXPECT_STREQ(h->brPortName, "eth1");
            EXPECT_EQ(h->active, 1);
            EXPECT_STREQ(h->ipAddr, "") << "no address until a neighbour or lease gives one";
        }
        TearDown();
    }
    // Case counts in the comparison with the gateway's MAC.
    lanhost_copy_text(gatewayBaseMac, "02:00:00:00:aa:01");
    EXPECT_NE(host_on("eth1", "02:00:00:00:AA:01"), nullptr);
}

TEST_F(Neighbor, AttributesAreWalkedAsTheyStand) {
    Neigh n = bridge_entry(kMac, "eth1");
    n.attrs.push_back({NDA_LLADDR, mac_bytes("02:00:00:00:51:02")});
    n.attrs.push_back({15, mac_bytes("02:00:00:00:51:03")});
    std::vector<uint8_t> m = n.bytes();
    NeighborMsg parsed;
    ASSERT_EQ(lanhost_neighbor_parse(m.data(), m.size(), &parsed), Parse::kOk);
    char mac[kMacTextSize];
    uint8_t bytes[6];
    ASSERT_TRUE(lanhost_attr_mac(parsed.attr[NDA_LLADDR], bytes));
    lanhost_mac_text(bytes, true, mac);
    EXPECT_STREQ(mac, "02:00:00:00:51:02") << "the later of two counts; type 15 is beyond the table";

    // An attribute that claims more than is left ends the list there.
    m[28 + 12] = 200;
    ASSERT_EQ(lanhost_neighbor_parse(m.data(), m.size(), &parsed), Parse::kOk);
    EXPECT_EQ(parsed.attr[NDA_MASTER].data, nullptr);
    ASSERT_TRUE(lanhost_attr_mac(parsed.attr[NDA_LLADDR], bytes));
    lanhost_mac_text(bytes, true, mac);
    EXPECT_STREQ(mac, kMac);
    EXPECT_EQ(lanhost_neighbor_parse(m.data(), 27, &parsed), Parse::kTooShort);
}

TEST_F(Neighbor, AWalkStopsAtABadLengthAndSkipsOtherTypes) {
    auto second = bridge_entry("02:00:00:00:51:02", "eth1").bytes();
    auto first = bridge_entry(kMac, "eth1").bytes();
    first.push_back(0); // an unaligned length: the next message starts at the next multiple of 4
    uint32_t len = uint32_t(first.size());
    memcpy(&first[0], &len, 4);
    first.resize(RTA_ALIGN(first.size()));
    std::vector<uint8_t> done(16, 0);
    done[0] = 16, done[4] = NLMSG_DONE;
    std::vector<uint8_t> d = first;
    d.insert(d.end(), done.begin(), done.end());
    d.insert(d.end(), second.begin(), second.end());
    walk(d);
    EXPECT_NE(list_find_lhost(kMac), nullptr);
    EXPECT_NE(list_find_lhost("02:00:00:00:51:02"), nullptr);
    TearDown();

    done[0] = 200; // runs past the end
    d = first;
    d.insert(d.end(), done.begin(), done.end());
    d.insert(d.end(), second.begin(), second.end());
    walk(d);
    EXPECT_NE(list_find_lhost(kMac), nullptr);
    EXPECT_EQ(list_find_lhost("02:00:00:00:51:02"), nullptr);
}

TEST_F(Neighbor, ReachableIpv4NeighbourGivesAKnownHostItsAddress) {
    struct Case {
        const char *what;
        std::function<void(Neigh &)> change;
        const char *ipAddr;
    } cases[] = {
        {"valid", [](Neigh &) {}, "192.168.1.20"},
        {"stale", [](Neigh &n) { n.state = NUD_STALE; }, ""},
        {"failed", [](Neigh &n) { n.state = NUD_FAILED; }, ""},
        {"deleted", [](Neigh &n) { n.type = RTM_DELNEIGH; }, ""},
        {"the gateway's address", [](Neigh &n) { n.attrs[0].second = addr_bytes(AF_INET, "192.168.1.1"); }, ""},
        {"unknown MAC", [](Neigh &n) { n.attrs[1].second = mac_bytes("02:00:00:00:51:09"); }, ""},
        {"no address", [](Neigh &n) { n.attrs.erase(n.attrs.begin()); }, ""},
        {"short address", [](Neigh &n) { n.attrs[0].second.pop_back(); }, ""},
    };
    for (const Case &c : cases) {
        lhost *h = host_on("eth1");
        ASSERT_NE(h, nullptr);
        h->active = 0;
        Neigh n = neighbour(AF_INET, "192.168.1.20");
        c.change(n);
        walk(n.bytes());
        EXPECT_STREQ(h->ipAddr, c.ipAddr) << c.what;
        EXPECT_EQ(h->active, c.ipAddr[0] ? 1 : 0) << c.what;
        EXPECT_EQ(list_find_lhost("02:00:00:00:51:09"), nullptr) << "this path never creates a record";
        TearDown();
    }
    EXPECT_STREQ(stored_text(kMac, kHostIpAddressAt), "192.168.1.20");
    EXPECT_STREQ(stored_text(kMac, kHostLayer2InterfaceAt),
                 "InternetGatewayDevice.LANDevice.1.LANEthernetInterfaceConfig.2");
}

TEST_F(Neighbor, Ipv6NeighbourFillsTheAddressOfItsKind) {
    struct Case {
        const char *addr;
        uint16_t state;
        uint16_t type;
        const char *global, *linkLocal;
    } cases[] = {
        {"2001:db8::20", NUD_REACHABLE, RTM_NEWNEIGH, "2001:db8::20", ""},
        {"2001:db8::20", NUD_STALE, RTM_NEWNEIGH, "2001:db8::20", ""},
        {"fd00::20", NUD_REACHABLE, RTM_NEWNEIGH, "fd00::20", ""},
        {"fe80::20", NUD_REACHABLE, RTM_NEWNEIGH, "", "fe80::20"},
        {"2001:db8::20", NUD_DELAY, RTM_NEWNEIGH, "", ""},
        {"2001:db8::20", NUD_REACHABLE, RTM_DELNEIGH, "", ""},
        {"fe80::1", NUD_REACHABLE, RTM_NEWNEIGH, "", ""},
        {"fec0::20", NUD_REACHABLE, RTM_NEWNEIGH, "", ""},
        {"ff02::1", NUD_REACHABLE, RTM_NEWNEIGH, "", ""},
    };
    for (const Case &c : cases) {
        lhost *h = host_on("eth1");
        Neigh n = neighbour(AF_INET6, c.addr);
        n.state = c.state;
        n.type = c.type;
        walk(n.bytes());
        EXPECT_STREQ(h->ipv6Addr, c.global) << c.addr << " state " << c.state << " type " << c.type;
        EXPECT_STREQ(h->ipv6LocalAddr, c.linkLocal) << c.addr;
        TearDown();
    }
}

TEST_F(Neighbor, PortChangeIsPublishedAndDeletionEndsTheRecordAndItsProbe) {
    lhost *h = host_on("eth1");
    walk(neighbour(AF_INET, "192.168.1.21").bytes());
    walk(bridge_entry(kMac, "eth2").bytes());
    EXPECT_EQ(list_find_lhost(kMac), h);
    EXPECT_STREQ(h->brPortName, "eth2");
    EXPECT_STREQ(stored_text(kMac, kHostLayer2InterfaceAt),
                 "InternetGatewayDevice.LANDevice.1.LANEthernetInterfaceConfig.3");

    ASSERT_EQ(wrapper_libevent_lhost_addArptimer(h, 3), 0);
    h->arpState = 1;
    walk(bridge_entry(kMac, "eth2", RTM_DELNEIGH).bytes());
    EXPECT_EQ(list_find_lhost(kMac), nullptr);
    EXPECT_EQ(event_base_get_num_events(lanhostEventBase, EVENT_BASE_COUNT_ADDED), 0) << "the probe timer went too";
    EXPECT_NE(wrapperZns_get_lanhost_byMac(mac_bytes(kMac).data()), nullptr) << "the Host object stays";
    EXPECT_EQ(stored_text(kMac, kHostActiveAt)[0], 0);
    walk(bridge_entry(kMac, "eth2", RTM_DELNEIGH).bytes()); // nothing left to delete
}

TEST_F(Neighbor, WirelessDepartureEmptiesTheAddressesAndKeepsTheRecord) {
    auto leave = [](const std::string &text) {
        std::vector<uint8_t> m(16, 0);
        m.insert(m.end(), text.begin(), text.end());
        m.push_back(0);
        uint32_t len = uint32_t(m.size());
        memcpy(&m[0], &len, 4);
        m[4] = uint8_t(kWlanLeaveMsgType);
        m.resize(RTA_ALIGN(m.size()));
        return m;
    };
    struct Case {
        const char *text;
        bool leaves;
    } cases[] = {
        {"02:00:00:00:51:0a", true},    {"02:00:00:00:51:0b", false}, {"02:00:00:00:51:0A\n", false},
        {"02:00:00:00:51:0A0", false}, {"", false},
    };
    for (const Case &c : cases) {
        lhost *h = host_on("wlan0.1", "02:00:00:00:51:0A");
        lanhost_copy_text(h->ipAddr, "192.168.1.22");
        lanhost_copy_text(h->ipv6Addr, "2001:db8::22");
        walk(leave(c.text));
        EXPECT_EQ(list_find_lhost("02:00:00:00:51:0A"), h) << "the record stays: " << c.text;
        EXPECT_STREQ(h->ipAddr, c.leaves ? "" : "192.168.1.22") << c.text;
        EXPECT_STREQ(h->ipv6Addr, c.leaves ? "" : "2001:db8::22") << c.text;
        EXPECT_EQ(h->active, 1);
        TearDown();
    }
    std::vector<uint8_t> bare(16, 0);
    bare[0] = 16, bare[4] = uint8_t(kWlanLeaveMsgType);
    walk(bare);
}

TEST(NeighborNames, TablesNameKnownValuesOnly) {
    EXPECT_STREQ(netlink_nlmsgType_name(28), "RTM_NEWNEIGH");
    EXPECT_STREQ(netlink_nlmsgType_name(31), "RTM_DELNEIGH_FAKE");
    EXPECT_STREQ(netlink_nlmsgType_name(200), "");
    EXPECT_STREQ(netlink_ndmState_name(32), "NUD_FAILED");
    EXPECT_STREQ(netlink_ndmState_name(6), "");
}
