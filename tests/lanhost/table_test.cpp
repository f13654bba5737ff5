// The address helpers where a slip is easy, and which ports are bridged.

#include "lanhost_port.h"
#include "tracker.h"

using namespace zntest;

TEST(HostTable, Ipv6AddressesClassifyAndCompare) {
    const std::tuple<const char *, uint32_t> cases[] = {
        {"2001:db8::1", 0xE0001}, {"fe80::1234", 0x20021},       {"fec0::1", 0x50041},
        {"fd00::1", 0xE0001},     {"ff02::1", 0x20022},          {"ff05::2", 0x50042},
        {"ff0e::1", 0xE0002},     {"ff01::1", 0x10012},          {"::", 0},
        {"::1", 0x20011},         {"::ffff:192.0.2.1", 0xE1000}, {"::192.0.2.1", 0xE0081},
        {"::1:0:0:1", 0xE0001},
    };
    for (const auto &[addr, type] : cases) {
        in6_addr a;
        ASSERT_EQ(inet_pton(AF_INET6, addr, &a), 1);
        EXPECT_EQ(lhost_ipv6_addr_type(a.s6_addr), type) << addr;
    }
    const std::tuple<const char *, const char *, int> compared[] = {
        {"2001:db8::1", "not an address", 2}, // bytes 8 to 11 zero: b is not read
        {"2001:db8::1:2:3:4", "fe80::1:2:3:4", 3}, {"2001:db8::1:2:3:4", "fe80::1:2:3:5", 1},
        {"2001:db8::1:2:3:4", "fe80::9:2:3:4", 1}, {"bogus", "fe80::1", 0},
        {"2001:db8::1:2:3:4", "bogus", 0},
    };
    for (const auto &[a, b, result] : compared)
        EXPECT_EQ(ipv6_compare_interface_id(a, b), result) << a << " " << b;
    char joined[kIpv6TextRoom] = {};
    EXPECT_EQ(ipv6_join_prefix_interface_id("2001:db8:1:2::9", "fe80::a:b:c:d", joined), 0);
    EXPECT_STREQ(joined, "2001:db8:1:2:a:b:c:d");
}

// MAC text is checked where the MAC filter poll reads it (arp_test).
TEST(HostTable, Ipv4TextIsCheckedStrictly) {
    for (const char *good : {"192.168.1.1", "0.0.0.0", "255.255.255.255", "01.2.3.4"})
        EXPECT_EQ(ipv4_str_is_valid(good), 1) << good;
    for (const char *bad : {"", "1.2.3", "1.2.3.4.", "1.2.3.4.5", "256.1.1.1", "1..2.3", ".1.2.3", "1.2.3.a",
                            "1.2.3.4 ", "*", "1.2.3.4;reboot", "1234.1.1.1"})
        EXPECT_EQ(ipv4_str_is_valid(bad), 0) << bad;
    EXPECT_EQ(ipv4_str_is_valid(nullptr), 0);
    EXPECT_EQ(ipv4_same_subnet("192.168.1.20", "192.168.1.200", "255.255.255.0"), 1);
}

class BridgedPorts : public TrackerTest {};

TEST_F(BridgedPorts, AreThoseOfBridgedWanConnections) {
    const std::string wan = "InternetGatewayDevice.WANDevice.1.WANConnectionDevice.", ip = wan + "1.WANIPConnection.1",
                      ppp8 = wan + "16.WANPPPConnection.8", ppp9 = wan + "16.WANPPPConnection.9",
                      wlan = " X_ZN_LanInterface string InternetGatewayDevice.LANDevice.1.WLANConfiguration.";
    lhost *h = add_host("02:00:00:00:10:01", "rax0.0"); // WLANConfiguration.1
    // Each step changes the store; the host's port serves a bridged connection or not.
    const std::tuple<std::string, int> steps[] = {
        {"true", 0}, // the default connection is routed
        {"znsUtil -s " + ip + " ConnectionType string IP_Bridged && znsUtil -s " + ip + wlan + "11", 1}, // a substring
        {"znsUtil -s " + ip + " ConnectionType string IP_Routed && znsUtil -a " + wan + "16 && znsUtil -a " + ppp8 +
             " && znsUtil -s " + ppp8 + " ConnectionType string PPPoE_Bridged && znsUtil -s " + ppp8 + wlan + "1",
         1}, // the last PPP connection of the last connection device
        {"znsUtil -a " + ppp9 + " && znsUtil -s " + ppp9 + " ConnectionType string PPPoE_Bridged && znsUtil -s " +
             ppp9 + wlan + "1 && znsUtil -d " + ppp8,
         0}, // a ninth is not looked at
        {"znsUtil -d InternetGatewayDevice.WANDevice.1", 0},
    };
    for (const auto &[change, bridged] : steps) {
        ASSERT_TRUE(run(change)) << change;
        EXPECT_EQ(wrapperZns_lanhost_l2Interface_is_bridge(h), bridged) << change;
    }
    ASSERT_TRUE(run("zncli sys restoredefault"));
}
