// The neighbour socket's messages against the host table and the store:
// a valid message changed one field at a time.
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <net/if.h>

#include "lanhost_arp.h"
#include "lanhost_neighbor.h"
#include "tracker.h"

using namespace zntest;

namespace {

constexpr const char *kMac = "02:00:00:00:51:01";
constexpr const char *kPortMac = "02:00:00:00:5A:00"; // the MAC of port ra0 itself

using Bytes = std::vector<uint8_t>;
struct Neigh;
using Change = std::function<void(Neigh &)>;

Bytes mac_bytes(const char *text) {
    Bytes mac(6);
    macStr_to_bytes(mac.data(), text);
    return mac;
}

Bytes addr_bytes(int family, const char *text) {
    Bytes a(family == AF_INET ? 4 : 16);
    EXPECT_EQ(inet_pton(family, text, a.data()), 1) << text;
    return a;
}

int32_t index_of(const char *port) { return int32_t(if_nametoindex(port)); }

struct Attr {
    uint16_t type;
    Bytes data;
    int len = -1; // in place of its own length
};

// One neighbour message, field by field.
struct Neigh {
    uint16_t type = RTM_NEWNEIGH;
    uint8_t family = AF_BRIDGE;
    int32_t ifindex = 0;
    uint16_t state = NUD_REACHABLE;
    std::vector<Attr> attrs;
    int lenDelta = 0; // added to nlmsg_len

    Bytes bytes() const {
        Bytes m(28, 0);
        for (const auto &[type, data, rtaLen] : attrs) {
            const uint16_t len = uint16_t(rtaLen >= 0 ? rtaLen : int(4 + data.size()));
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

void walk(const Bytes &datagram) { lanhost_neighbor_walk(datagram.data(), datagram.size(), lanhost_neighbor_dispatch); }

Neigh bridge_entry(const char *mac, const char *port, uint16_t type = RTM_NEWNEIGH) {
    Neigh n;
    n.type = type;
    n.ifindex = index_of(port);
    const int32_t bridge = index_of("br0");
    n.attrs = {{NDA_LLADDR, mac_bytes(mac)}, {NDA_MASTER, Bytes(4)}};
    memcpy(n.attrs[1].data.data(), &bridge, 4);
    return n;
}

Neigh neighbour(int family, const char *addr, const char *mac = kMac) {
    Neigh n;
    n.family = uint8_t(family);
    n.attrs = {{NDA_DST, addr_bytes(family, addr)}, {NDA_LLADDR, mac_bytes(mac)}};
    return n;
}

// The wireless driver's departure message with text at offset 16.
Bytes departure(const std::string &text) {
    Bytes m(16 + text.size() + 1, 0);
    memcpy(&m[16], text.data(), text.size());
    m[0] = uint8_t(m.size()), m[4] = uint8_t(kWlanLeaveMsgType);
    return m;
}

} // namespace

class Neighbor : public TrackerTest {
protected:
    static void SetUpTestSuite() {
        TrackerTest::SetUpTestSuite();
        for (const char *port : {"eth1", "eth2", "ppp0", "wlan0.1", "ethra1"})
            ASSERT_TRUE(run(std::string("ip link add ") + port + " type veth peer name p-" + port)) << port;
        ASSERT_TRUE(run("ip link add ra0 address 02:00:00:00:5a:00 type veth peer name p-ra0"));
    }
    static lhost *host_on(const char *port, const char *mac = kMac) {
        walk(bridge_entry(mac, port).bytes());
        return list_find_lhost(mac);
    }
};

TEST_F(Neighbor, BridgeEntryCreatesAHostOnlyWhenEveryFieldPasses) {
    const std::tuple<const char *, Change, bool> cases[] = {
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
        {"gateway MAC", [](Neigh &n) { n.attrs[0].data = mac_bytes("02:00:00:00:00:01"); }, false},
        {"port's own MAC", [](Neigh &n) { n.ifindex = index_of("ra0"), n.attrs[0].data = mac_bytes(kPortMac); }, false},
        {"no MAC", [](Neigh &n) { n.attrs.erase(n.attrs.begin()); }, false},
        {"short MAC", [](Neigh &n) { n.attrs[0].data.pop_back(); }, false},
        {"damaged attribute list", [](Neigh &n) { n.attrs[0].len = 3; }, false},
        {"the list ends at an attribute longer than the rest", [](Neigh &n) { n.attrs[1].len = 200; }, true},
        {"length beyond the datagram", [](Neigh &n) { n.lenDelta = 4; }, false},
        {"length below a header", [](Neigh &n) { n.lenDelta = 15 - int(n.bytes().size()); }, false},
        {"no ndmsg", [](Neigh &n) { n.attrs.clear(), n.lenDelta = -4; }, false},
        {"a later MAC",
         [](Neigh &n) {
             n.attrs.push_back({NDA_LLADDR, mac_bytes(kPortMac), -1});
         },
         false},
        {"a type beyond the table",
         [](Neigh &n) {
             n.attrs.push_back({15, mac_bytes(kPortMac), -1});
         },
         true},
    };
    for (const auto &[what, change, created] : cases) {
        Neigh n = bridge_entry(kMac, "eth1");
        change(n);
        walk(n.bytes());
        lhost *h = list_find_lhost(kMac);
        EXPECT_EQ(h != nullptr, created) << what;
        if (h && what == std::string("valid")) {
            EXPECT_EQ(std::string(h->brName) + " " + h->brPortName + " " + std::to_string(h->active), "br0 eth1 1");
        }
        EXPECT_TRUE(hosts_table("Host").empty()) << what << ": no object until an address is known";
        TearDown();
    }
    // Case counts in the comparison with the gateway's MAC.
    lanhost_copy_text(gatewayBaseMac, "02:00:00:00:aa:01");
    EXPECT_NE(host_on("eth1", "02:00:00:00:AA:01"), nullptr);
}

TEST_F(Neighbor, AWalkStopsAtABadLengthAndSkipsOtherTypes) {
    // Two entries around NLMSG_DONE; the first of an unaligned length.
    Bytes first = bridge_entry(kMac, "eth1").bytes(), second = bridge_entry("02:00:00:00:51:02", "eth1").bytes();
    first.push_back(0);
    const uint32_t len = uint32_t(first.size());
    memcpy(&first[0], &len, 4);
    first.resize(RTA_ALIGN(first.size()));
    for (uint8_t doneLength : {16, 200}) { // 200 runs past the end and ends the walk
        Bytes d = first, done(16, 0);
        done[0] = doneLength, done[4] = NLMSG_DONE;
        d.insert(d.end(), done.begin(), done.end());
        d.insert(d.end(), second.begin(), second.end());
        walk(d);
        EXPECT_NE(list_find_lhost(kMac), nullptr) << int(doneLength);
        EXPECT_EQ(list_find_lhost("02:00:00:00:51:02") != nullptr, doneLength == 16) << int(doneLength);
        TearDown();
    }
}

// A reachable neighbour entry of a known host gives it the address of its
// family and kind, "IPv4|global|link-local"; any other entry changes nothing.
TEST_F(Neighbor, NeighbourEntriesGiveAKnownHostItsAddresses) {
    const Change same = [](Neigh &) {};
    const std::tuple<const char *, int, const char *, Change, const char *> cases[] = {
        {"valid", AF_INET, "192.168.1.20", same, "192.168.1.20||"},
        {"stale", AF_INET, "192.168.1.20", [](Neigh &n) { n.state = NUD_STALE; }, "||"},
        {"failed", AF_INET, "192.168.1.20", [](Neigh &n) { n.state = NUD_FAILED; }, "||"},
        {"deleted", AF_INET, "192.168.1.20", [](Neigh &n) { n.type = RTM_DELNEIGH; }, "||"},
        {"the gateway's address", AF_INET, "192.168.1.1", same, "||"},
        {"unknown MAC", AF_INET, "192.168.1.20", [](Neigh &n) { n.attrs[1].data = mac_bytes(kPortMac); }, "||"},
        {"no address", AF_INET, "192.168.1.20", [](Neigh &n) { n.attrs.erase(n.attrs.begin()); }, "||"},
        {"short address", AF_INET, "192.168.1.20", [](Neigh &n) { n.attrs[0].data.pop_back(); }, "||"},
        {"global", AF_INET6, "2001:db8::20", same, "|2001:db8::20|"},
        {"stale global", AF_INET6, "2001:db8::20", [](Neigh &n) { n.state = NUD_STALE; }, "|2001:db8::20|"},
        {"unique local", AF_INET6, "fd00::20", same, "|fd00::20|"},
        {"link-local", AF_INET6, "fe80::20", same, "||fe80::20"},
        {"delayed", AF_INET6, "2001:db8::20", [](Neigh &n) { n.state = NUD_DELAY; }, "||"},
        {"deleted", AF_INET6, "2001:db8::20", [](Neigh &n) { n.type = RTM_DELNEIGH; }, "||"},
        {"the gateway's address", AF_INET6, "fe80::1", same, "||"},
        {"site-local", AF_INET6, "fec0::20", same, "||"},
        {"multicast", AF_INET6, "ff02::1", same, "||"},
    };
    for (const auto &[what, family, addr, change, want] : cases) {
        lhost *h = host_on("eth1");
        h->active = 0;
        Neigh n = neighbour(family, addr);
        change(n);
        walk(n.bytes());
        EXPECT_EQ(joined({h->ipAddr, h->ipv6Addr, h->ipv6LocalAddr}), want) << what;
        EXPECT_EQ(h->active, h->ipAddr[0] ? 1 : 0) << what;
        EXPECT_EQ(joined({stored(h, "IPAddress"), stored(h, "X_ZN_IPV6LocalAddress")}),
                  joined({h->ipAddr, h->ipv6LocalAddr}))
            << what;
        EXPECT_EQ(list_find_lhost(kPortMac), nullptr) << "this path never creates a record";
        TearDown();
    }
}

TEST_F(Neighbor, AMovedHostIsPublishedAndTheBridgesDeletionTakesItOffline) {
    const std::tuple<const char *, std::string> cases[] = {
        {"eth2", "InternetGatewayDevice.LANDevice.1.LANEthernetInterfaceConfig.3"},
        {"wlan0.1", "InternetGatewayDevice.LANDevice.1.WLANConfiguration.10"}, // its own branch of the deletion
    };
    for (const auto &[port, layer2] : cases) {
        lhost *h = host_on("eth1");
        walk(neighbour(AF_INET, "192.168.1.21").bytes());
        walk(neighbour(AF_INET6, "fe80::1:2:3:4").bytes());
        walk(neighbour(AF_INET6, "2001:db8::5:6:7:8").bytes());
        walk(bridge_entry(kMac, port).bytes());
        EXPECT_EQ(list_find_lhost(kMac), h);
        EXPECT_EQ(differences(host_object(kMac), "ipv6Active=1;Layer2Interface=" + layer2), "");

        ASSERT_EQ(wrapper_libevent_lhost_addArptimer(h, 3), 0);
        h->arpState = 1;
        walk(bridge_entry(kMac, port, RTM_DELNEIGH).bytes());
        EXPECT_EQ(list_find_lhost(kMac), nullptr) << port;
        EXPECT_EQ(event_base_get_num_events(lanhostEventBase, EVENT_BASE_COUNT_ADDED), 0) << "the probe timer went too";
        EXPECT_EQ(differences(host_object(kMac), "Active=0;ipv6Active=0"), "") << port;
        // The copy was made while the IPv6 addresses were still in use.
        EXPECT_EQ(differences(host_object(kMac, "OfflineHost"), "IPAddress=192.168.1.21;X_ZN_IPV6Address="), "")
            << port;
        EXPECT_EQ(hosts_count(), "0");
        walk(bridge_entry(kMac, port, RTM_DELNEIGH).bytes()); // nothing left to delete
        TearDown();
    }
}

TEST_F(Neighbor, WirelessDepartureEmptiesTheAddressesAndKeepsTheRecord) {
    const std::tuple<std::string, bool> cases[] = {
        {"02:00:00:00:51:0a", true},
        {"02:00:00:00:51:0b", false},
        {"02:00:00:00:51:0A\n", false},
        {"02:00:00:00:51:0A0", false},
        {"", false},
    };
    for (const auto &[text, leaves] : cases) {
        lhost *h = host_on("wlan0.1", "02:00:00:00:51:0A");
        walk(neighbour(AF_INET, "192.168.1.22", "02:00:00:00:51:0A").bytes());
        lanhost_copy_text(h->ipv6Addr, "2001:db8::22");
        walk(departure(text));
        EXPECT_EQ(list_find_lhost("02:00:00:00:51:0A"), h) << "the record stays: " << text;
        EXPECT_EQ(joined({h->ipAddr, h->ipv6Addr}), leaves ? "|" : "192.168.1.22|2001:db8::22") << text;
        EXPECT_EQ(stored(h, "Active") + std::to_string(h->active), leaves ? "01" : "11") << text;
        TearDown();
    }
    Bytes bare = departure(""); // a header without text
    bare.resize(bare[0] = 16);
    walk(bare);
}
