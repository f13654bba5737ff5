// The host table's lists and the helpers where a slip is easy.
#include <gtest/gtest.h>
#include <arpa/inet.h>

#include <string>

#include "lanhost.h"
#include "lanhost_port.h"
#include "lanhost_table.h"
#include "shell.h"

using zntest::sh;

TEST(HostTable, ListsFindByTheirOwnCaseRules) {
    EXPECT_EQ(list_find_lhost("02:00:00:00:00:01"), nullptr);
    list_del_lhost(nullptr);
    lhost *a = list_init_add_lhost();
    lhost *b = list_init_add_lhost();
    ASSERT_TRUE(a && b);
    lanhost_copy_text(a->macAddr, "AA:BB:CC:00:00:01");
    lanhost_copy_text(b->macAddr, "AA:BB:CC:00:00:02");
    EXPECT_EQ(hostListHead, b) << "newest first";
    EXPECT_EQ(list_find_lhost("aa:bb:cc:00:00:01"), a);
    list_del_lhost(a);
    EXPECT_EQ(list_find_lhost("AA:BB:CC:00:00:01"), nullptr);
    EXPECT_EQ(list_find_lhost("AA:BB:CC:00:00:02"), b);
    list_del_lhost(b);
    EXPECT_EQ(hostListHead, nullptr);

    auto *e = static_cast<dhcpRequestEntry *>(calloc(1, sizeof(dhcpRequestEntry)));
    lanhost_copy_text(e->macAddr, "aa:bb:cc:00:00:03");
    dhcpRequestListHead = e;
    EXPECT_EQ(list_find_dhcpRequestEntry("AA:BB:CC:00:00:03"), nullptr) << "exact match only";
    EXPECT_EQ(list_find_dhcpRequestEntry("aa:bb:cc:00:00:03"), e);
    list_del_dhcpRequestEntry(e);
    EXPECT_EQ(dhcpRequestListHead, nullptr);

    char small[4];
    EXPECT_FALSE(lanhost_copy_text(small, "abcdef"));
    EXPECT_STREQ(small, "abc");
    EXPECT_TRUE(lanhost_copy_text(small, "abcdef", 2));
    EXPECT_STREQ(small, "ab");
    uint8_t mac[6];
    macStr_to_bytes(mac, "0a:Bc:zz:10:ff:7G");
    EXPECT_EQ(memcmp(mac, "\x0a\xbc\x00\x10\xff\x70", 6), 0) << "non-hex digits count as 0";
}

TEST(HostTable, PortNamesMapToStorePaths) {
    struct Case {
        const char *port, *path, *type;
        int devtype;
    } cases[] = {
        {"eth1", "InternetGatewayDevice.LANDevice.1.LANEthernetInterfaceConfig.2", "Ethernet", 3},
        {"lan1", "InternetGatewayDevice.LANDevice.1.LANEthernetInterfaceConfig.2", "Ethernet", 3},
        {"ra3.0", "InternetGatewayDevice.LANDevice.1.WLANConfiguration.12", "802.11", 1},
        {"rax3.0", "InternetGatewayDevice.LANDevice.1.WLANConfiguration.4", "802.11", 1},
        {"wlan0.2", "InternetGatewayDevice.LANDevice.1.WLANConfiguration.11", "802.11", 1},
        {"wlan2.2", "InternetGatewayDevice.LANDevice.1.WLANConfiguration.3", "802.11", 1},
        {"wlan2", "InternetGatewayDevice.LANDevice.1.WLANConfiguration.1", "802.11", 1},
        {"wlan0", "InternetGatewayDevice.LANDevice.1.WLANConfiguration.9", "802.11", 1},
        {"veth7", "untouched", "kept", 42},
    };
    for (const Case &c : cases) {
        lhost h{};
        lanhost_copy_text(h.Layer2Interface, "untouched");
        lanhost_copy_text(h.interfacetype, "kept");
        h.devtype = 42;
        wrapperZns_lanhost_get_l2Interface(c.port, h.Layer2Interface, h.interfacetype, &h.devtype);
        EXPECT_STREQ(h.Layer2Interface, c.path) << c.port;
        EXPECT_STREQ(h.interfacetype, c.type) << c.port;
        EXPECT_EQ(h.devtype, c.devtype) << c.port;
    }
}

TEST(HostTable, Ipv6AddressesClassifyAndCompare) {
    struct Case {
        const char *addr;
        uint32_t type;
    } cases[] = {
        {"2001:db8::1", 0xE0001}, {"fe80::1234", 0x20021}, {"fec0::1", 0x50041}, {"fd00::1", 0xE0001},
        {"ff02::1", 0x20022},     {"ff05::2", 0x50042},    {"ff0e::1", 14u << 16 | 2}, {"ff01::1", 0x10012},
        {"::", 0},                {"::1", 0x20011},        {"::ffff:192.0.2.1", 0xE1000}, {"::192.0.2.1", 0xE0081},
        {"::1:0:0:1", 0xE0001},
    };
    for (const Case &c : cases) {
        in6_addr a;
        ASSERT_EQ(inet_pton(AF_INET6, c.addr, &a), 1);
        EXPECT_EQ(lhost_ipv6_addr_type(a.s6_addr), c.type) << c.addr;
    }
    EXPECT_EQ(ipv6_compare_interface_id("2001:db8::1", "not an address"), 2) << "bytes 8-11 zero: b unread";
    EXPECT_EQ(ipv6_compare_interface_id("2001:db8::1:2:3:4", "fe80::1:2:3:4"), 3);
    EXPECT_EQ(ipv6_compare_interface_id("2001:db8::1:2:3:4", "fe80::1:2:3:5"), 1);
    EXPECT_EQ(ipv6_compare_interface_id("2001:db8::1:2:3:4", "fe80::9:2:3:4"), 1);
    EXPECT_EQ(ipv6_compare_interface_id("bogus", "fe80::1"), 0);
    EXPECT_EQ(ipv6_compare_interface_id("2001:db8::1:2:3:4", "bogus"), 0);
    char joined[44];
    ASSERT_EQ(ipv6_join_prefix_interface_id("2001:db8:1:2::", "fe80::a:b:c:d", joined), 0);
    EXPECT_STREQ(joined, "2001:db8:1:2:a:b:c:d");
    EXPECT_EQ(ipv6_join_prefix_interface_id("x", "fe80::1", joined), -1);
}

TEST(HostTable, Ipv4TextIsCheckedStrictly) {
    for (const char *good : {"192.168.1.1", "0.0.0.0", "255.255.255.255", "01.2.3.4"})
        EXPECT_EQ(ipv4_str_is_valid(good), 1) << good;
    for (const char *bad : {"", "1.2.3", "1.2.3.4.", "1.2.3.4.5", "256.1.1.1", "1..2.3", ".1.2.3", "1.2.3.a",
                            "1.2.3.4 ", "*", "1.2.3.4;reboot", "1234.1.1.1"})
        EXPECT_EQ(ipv4_str_is_valid(bad), 0) << bad;
    EXPECT_EQ(ipv4_str_is_valid(nullptr), 0);
    EXPECT_EQ(ipv4_same_subnet("192.168.1.10", "192.168.1.200", "255.255.255.0"), 1);
    EXPECT_EQ(ipv4_same_subnet("192.168.1.10", "192.168.2.10", "255.255.255.0"), 0);
    EXPECT_EQ(ipv4_same_subnet("192.168.1.10", "192.168.2.10", "255.255.0.0"), 1);
    EXPECT_EQ(ipv4_same_subnet("192.168.1.10", "x", "255.255.0.0"), 0);
}

TEST(HostTable, BridgedPortsAreThoseOfBridgedWanConnections) {
    storeHandle = zns_xmlShmInit();
    ASSERT_NE(storeHandle, nullptr);
    const std::string ip = "InternetGatewayDevice.WANDevice.1.WANConnectionDevice.1.WANIPConnection.1";
    lhost h{};
    lanhost_copy_text(h.brPortName, "rax0.0"); // WLANConfiguration.1
    EXPECT_EQ(wrapperZns_lanhost_l2Interface_is_bridge(&h), 0) << "the default connection is routed";
    EXPECT_STREQ(h.Layer2Interface, "InternetGatewayDevice.LANDevice.1.WLANConfiguration.1");

    ASSERT_EQ(sh("znsUtil -s " + ip + " ConnectionType string IP_Bridged && znsUtil -s " + ip +
                 " X_ZN_LanInterface string InternetGatewayDevice.LANDevice.1.WLANConfiguration.11")
                  .status,
              0);
    EXPECT_EQ(wrapperZns_lanhost_l2Interface_is_bridge(&h), 1) << "a substring of the binding counts";

    // The last PPP connection of the last connection device is still looked at.
    ASSERT_EQ(sh("znsUtil -s " + ip + " ConnectionType string IP_Routed").status, 0);
    const std::string cd = "InternetGatewayDevice.WANDevice.1.WANConnectionDevice.16";
    ASSERT_EQ(sh("znsUtil -a " + cd + " && znsUtil -a " + cd + ".WANPPPConnection.8 && znsUtil -s " + cd +
                 ".WANPPPConnection.8 ConnectionType string PPPoE_Bridged && znsUtil -s " + cd +
                 ".WANPPPConnection.8 X_ZN_LanInterface string InternetGatewayDevice.LANDevice.1.WLANConfiguration.1")
                  .status,
              0);
    EXPECT_EQ(wrapperZns_lanhost_l2Interface_is_bridge(&h), 1);
    const std::string ppp9 = cd + ".WANPPPConnection.9";
    ASSERT_EQ(sh("znsUtil -a " + ppp9 + " && znsUtil -s " + ppp9 + " ConnectionType string PPPoE_Bridged && znsUtil -s " +
                 ppp9 + " X_ZN_LanInterface string InternetGatewayDevice.LANDevice.1.WLANConfiguration.1 && znsUtil -d " +
                 cd + ".WANPPPConnection.8")
                  .status,
              0);
    EXPECT_EQ(wrapperZns_lanhost_l2Interface_is_bridge(&h), 0) << "a ninth connection is not looked at";

    ASSERT_EQ(sh("znsUtil -d InternetGatewayDevice.WANDevice.1").status, 0);
    EXPECT_EQ(wrapperZns_lanhost_l2Interface_is_bridge(&h), 0);
    EXPECT_EQ(wrapperZns_lanhost_l2Interface_is_bridge(nullptr), 0);
    zns_xmlShmDeInit(&storeHandle);
}
