// Publication of host records in the store, against the gateway's own store
// and lease files.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "lanhost.h"
#include "lanhost_store.h"
#include "shell.h"

using zntest::file_text;
using zntest::sh;

TEST(LeaseLine, FieldsOfTheDnsmasqLine) {
    struct Case {
        const char *line, *name;
        int64_t lease;
    } cases[] = {
        {"1700000000 aa:bb:cc:00:00:01 192.168.1.10 my\x1Fphone\x1F 01:aa 86400\n", "my phone ", 86400},
        {"1700000000\taa:bb:cc:00:00:01\t192.168.1.10\tpc\t*\t4294967295", "pc", 4294967295},
        {"1700000000 aa:bb:cc:00:00:01 192.168.1.10 * 01:aa 600", "unknown", 600},
        {"1700000000 aa:bb:cc:00:00:01 192.168.1.10 laptop 01:aa", "laptop", 0},
        {"1700000000 aa:bb:cc:00:00:01 192.168.1.10", "unknown", 0},
        {"", "unknown", 0},
        {"1 m 1.2.3.4 a-name-of-forty-characters-is-too-long-x id 5", "a-name-of-forty-characters-is-t", 5},
        {"1 m 1.2.3.4 n id 12abc", "n", 12},
    };
    for (const Case &c : cases) {
        DnsmasqLease lease;
        memset(&lease, 0x55, sizeof lease);
        lanhost_dnsmasq_lease_scan(c.line, strlen(c.line), &lease);
        EXPECT_STREQ(lease.hostName, c.name) << c.line;
        EXPECT_STREQ(lease.source, "DHCP") << c.line;
        EXPECT_EQ(lease.leaseTime, c.lease) << c.line;
    }
    DnsmasqLease lease;
    lanhost_dnsmasq_lease_scan("1 m 1.2.3.4 cut-here 2 3", 15, &lease);
    EXPECT_STREQ(lease.hostName, "cut") << "the length given ends the line";
}

class StoreSync : public ::testing::Test {
protected:
    static void SetUpTestSuite() { storeHandle = zns_xmlShmInit(); }
    static void TearDownTestSuite() { zns_xmlShmDeInit(&storeHandle); }

    void SetUp() override { ASSERT_NE(storeHandle, nullptr); }

    void TearDown() override {
        for (int i = 1; i <= kLanhostMaxNum; i++)
            for (uint32_t oid : {kOidHost, kOidOfflineHost, kOidHostCustomise, kOidTempMacTable})
                znsXml_delObjectByOIDIAIndirect(storeHandle, oid, lanhost_instance(i));
        while (hostListHead)
            list_del_lhost(hostListHead);
        sh("rm -f /etc/dnsmasq.leases /etc/dhcp6s.leases");
    }

    static lhost *add_host(const char *mac, const char *port, const char *ip) {
        lhost *h = list_init_add_lhost();
        macStr_to_bytes(h->mac, mac);
        lanhost_mac_text(h->mac, true, h->macAddr);
        lanhost_copy_text(h->brPortName, port);
        lanhost_copy_text(h->ipAddr, ip);
        h->active = 1;
        return h;
    }

    static void sync4(const lhost *h) { wrapperZns_lanhost_update(h->mac, h->ipAddr, AF_INET, 0); }
    static void sync6(const lhost *h, const char *addr, int scope) {
        wrapperZns_lanhost_update(h->mac, addr, AF_INET6, scope);
    }

    static std::string text(uint32_t oid, int index, const char *name) {
        char out[512] = "<absent>";
        znsXml_getParameterByOID(storeHandle, oid, lanhost_instance(index), name, out);
        return out;
    }
    template <typename T = uint32_t> static T num(uint32_t oid, int index, const char *name) {
        T out{};
        EXPECT_EQ(znsXml_getParameterByOID(storeHandle, oid, lanhost_instance(index), name, &out), 0) << name;
        return out;
    }
    static bool has_mac(uint32_t oid, int index, const uint8_t *mac) {
        uint8_t out[6];
        return znsXml_getParameterByOID(storeHandle, oid, lanhost_instance(index), "MACAddress", out) == 0 &&
               memcmp(out, mac, 6) == 0;
    }
    static uint16_t hosts_param(size_t at) {
        auto *hosts = static_cast<const uint8_t *>(znsXml_GetObjectByName(storeHandle, kHostsPath, 1));
        return hosts ? lanhost_field<uint16_t>(hosts, at) : 0xFFFF;
    }
    // Fills the table of oid with objects of MAC 02:00:00:TAG:00:i, each with its values.
    static void fill(uint32_t oid, uint8_t tag, const std::vector<uint32_t> &downtimes) {
        for (int i = 1; i <= kLanhostMaxNum; i++) {
            const uint8_t mac[6] = {2, 0, 0, tag, 0, uint8_t(i)};
            const uint32_t downtime = size_t(i) <= downtimes.size() ? downtimes[i - 1] : 1000 + i;
            zns_param_list_t *list = newParameterList();
            setParameterToList(list, "MACAddress", ZNS_TYPE_MAC, mac);
            setParameterToList(list, "UTCDowntime", ZNS_TYPE_UINT32, &downtime);
            ASSERT_EQ(znsXml_addObjectByOIDIWithParaListIndirect(storeHandle, oid, lanhost_instance(i), list), 0);
            freeParameterList(list);
        }
    }
};

TEST_F(StoreSync, FirstIpv4SyncPublishesAStaticHost) {
    lhost *h = add_host("02:00:00:00:20:01", "eth1", "192.168.1.20");
    sync4(h);
    ASSERT_TRUE(has_mac(kOidHost, 1, h->mac));
    EXPECT_EQ(text(kOidHost, 1, "AddressSource"), "Static");
    EXPECT_EQ(num<uint8_t>(kOidHost, 1, "Active"), 1);
    EXPECT_EQ(text(kOidHost, 1, "IPAddress"), "192.168.1.20");
    EXPECT_EQ(text(kOidHost, 1, "HostName"), "PC");
    EXPECT_EQ(text(kOidHost, 1, "Vendor"), "unknown");
    EXPECT_EQ(text(kOidHost, 1, "Layer2Interface"), "InternetGatewayDevice.LANDevice.1.LANEthernetInterfaceConfig.2");
    EXPECT_EQ(text(kOidHost, 1, "InterfaceType"), "Ethernet");
    EXPECT_EQ(num<int32_t>(kOidHost, 1, "LeaseTimeRemaining"), 0);
    EXPECT_EQ(num(kOidHost, 1, "DeviceType"), 0u) << "no temporary MAC table entry";
    EXPECT_GT(num(kOidHost, 1, "StartUptime"), 0u);
    EXPECT_TRUE(has_mac(kOidHostCustomise, 1, h->mac));
    EXPECT_EQ(hosts_param(kHostsNumberAt), 1);

    const uint16_t changes = hosts_param(8);
    sync4(h);
    EXPECT_EQ(hosts_param(8), changes) << "nothing differs, nothing is written";

    // The temporary MAC table types the host; the default name is kept.
    const uint32_t phone = 1;
    zns_param_list_t *list = newParameterList();
    setParameterToList(list, "MACAddress", ZNS_TYPE_MAC, h->mac);
    setParameterToList(list, "DeviceType", ZNS_TYPE_UINT32, &phone);
    ASSERT_EQ(znsXml_addObjectByOIDIWithParaListIndirect(storeHandle, kOidTempMacTable, lanhost_instance(254), list),
              0);
    freeParameterList(list);
    EXPECT_EQ(getMacTableDeviceType(h->mac), 1);
    sync4(h);
    EXPECT_EQ(num(kOidHost, 1, "DeviceType"), 1u);
    EXPECT_EQ(text(kOidHost, 1, "HostName"), "PC");
}

TEST_F(StoreSync, LeaseFileAndSnoopedRequestMakeTheSourceDhcp) {
    ASSERT_EQ(sh("printf '1700000000 02:00:00:00:20:02 192.168.1.21 tablet\\037one 01:02 3600\\n' > "
                 "/etc/dnsmasq.leases").status,
              0);
    lhost *tablet = add_host("02:00:00:00:20:02", "ra0.0", "192.168.1.21");
    sync4(tablet);
    EXPECT_EQ(text(kOidHost, 1, "AddressSource"), "DHCP");
    EXPECT_EQ(text(kOidHost, 1, "HostName"), "tablet one");
    EXPECT_EQ(num<int32_t>(kOidHost, 1, "LeaseTimeRemaining"), 3600);
    EXPECT_EQ(text(kOidHost, 1, "InterfaceType"), "802.11");
    EXPECT_EQ(access("/etc/dnsmasq.leases.lock", F_OK), 0);

    // Without a lease line a snooped request decides, and is used up.
    lhost *laptop = add_host("02:00:00:00:20:03", "lan2", "192.168.1.22");
    auto *request = static_cast<dhcpRequestEntry *>(calloc(1, sizeof(dhcpRequestEntry)));
    lanhost_copy_text(request->macAddr, "02:00:00:00:20:03");
    lanhost_copy_text(request->requestedIp, "192.168.1.22");
    lanhost_copy_text(request->hostName, "laptop");
    dhcpRequestListHead = request;
    sync4(laptop);
    EXPECT_EQ(dhcpRequestListHead, nullptr);
    EXPECT_EQ(text(kOidHost, 2, "AddressSource"), "DHCP");
    EXPECT_EQ(text(kOidHost, 2, "HostName"), "laptop");

    // Address text that isn't an address never reaches the shell.
    for (const char *bad : {"1;touch /tmp/x", "$(touch /tmp/x)", "`touch /tmp/x`"}) {
        lhost *h = add_host("02:00:00:00:20:04", "eth1", bad);
        sync4(h);
        EXPECT_STREQ(h->ipAddrSource, "Static") << bad;
        EXPECT_NE(access("/tmp/x", F_OK), 0) << bad;
        list_del_lhost(h);
    }
}

TEST_F(StoreSync, OfflineHostsAreCopiedAndComeBack) {
    lhost *h = add_host("02:00:00:00:20:05", "eth1", "192.168.1.23");
    sync4(h);
    wrapperZns_lanhost_set_offline(h);
    EXPECT_EQ(num<uint8_t>(kOidHost, 1, "Active"), 0);
    const uint32_t downtime = num(kOidHost, 1, "UTCDowntime");
    EXPECT_GE(downtime, 1500000000u);
    EXPECT_EQ(hosts_param(kHostsNumberAt), 0);
    ASSERT_TRUE(has_mac(kOidOfflineHost, 1, h->mac));
    EXPECT_EQ(num(kOidOfflineHost, 1, "UTCDowntime"), downtime);
    EXPECT_EQ(text(kOidOfflineHost, 1, "IPAddress"), "192.168.1.23");
    EXPECT_EQ(text(kOidOfflineHost, 1, "HostName"), "PC");

    h->active = 0;
    EXPECT_EQ(wrapperZns_lanhost_get_longestOffline(), 1);
    h->active = 1;
    EXPECT_EQ(wrapperZns_lanhost_get_longestOffline(), 0) << "its record is active";

    sync4(h);
    EXPECT_EQ(num<uint8_t>(kOidHost, 1, "Active"), 1);
    EXPECT_EQ(znsXml_GetObjectByOID(storeHandle, kOidOfflineHost, lanhost_instance(1), 1), nullptr);
    EXPECT_EQ(hosts_param(kHostsNumberAt), 1);

    // Only an inactive object without an address is unused.
    wrapperZns_lanhost_set_offline(h);
    wrapperZns_unusedLanhost_delete(h->mac);
    EXPECT_TRUE(has_mac(kOidHost, 1, h->mac));
    const char empty[] = "";
    lanhost_store_set_one(storeHandle, wrapperZns_get_lanhost_byMac(h->mac), "IPAddress", ZNS_TYPE_STRING, empty);
    wrapperZns_unusedLanhost_delete(h->mac);
    EXPECT_EQ(wrapperZns_get_lanhost_byMac(h->mac), nullptr);
    EXPECT_EQ(znsXml_GetObjectByOID(storeHandle, kOidHostCustomise, lanhost_instance(1), 1), nullptr);
}

TEST_F(StoreSync, TheHostBeyondAFullTableStaysInMemory) {
    fill(kOidHost, 1, {});
    const uint16_t count = 7;
    ASSERT_EQ(znsXml_setOneParameterByOIDIndirect(storeHandle, kOidHosts,
                                                  znsXml_ConstructIAValue(__FILE__, __func__, __LINE__, 1, "1"),
                                                  "HostNumberOfEntries", ZNS_TYPE_UINT16, &count),
              0);
    lhost *h = add_host("02:00:00:00:20:06", "eth1", "192.168.1.24");
    const uint16_t changes = hosts_param(8);
    sync4(h);
    EXPECT_EQ(wrapperZns_get_lanhost_byMac(h->mac), nullptr);
    EXPECT_EQ(hosts_param(8), changes) << "nothing written, not even the count";
    EXPECT_EQ(hosts_param(kHostsNumberAt), 7);
    EXPECT_EQ(list_find_lhost("02:00:00:00:20:06"), h);
}

TEST_F(StoreSync, AFullOfflineTableReplacesTheLongestOffline) {
    struct Case {
        std::vector<uint32_t> downtimes;
        int replaced;
    } cases[] = {{{100, 50, 50}, 2}, {{100, 0, 7}, 3}};
    for (const Case &c : cases) {
        fill(kOidOfflineHost, 2, c.downtimes);
        lhost *h = add_host("02:00:00:00:20:07", "eth1", "192.168.1.25");
        sync4(h);
        wrapperZns_lanhost_set_offline(h);
        EXPECT_TRUE(has_mac(kOidOfflineHost, c.replaced, h->mac)) << c.downtimes[1];
        EXPECT_EQ(num(kOidOfflineHost, c.replaced, "UTCDowntime"), num(kOidHost, 1, "UTCDowntime"));
        EXPECT_EQ(text(kOidOfflineHost, c.replaced, "Layer2Interface"),
                  "InternetGatewayDevice.LANDevice.1.LANEthernetInterfaceConfig.2");
        for (int i = 1; i <= 4; i++)
            EXPECT_EQ(has_mac(kOidOfflineHost, i, h->mac), i == c.replaced) << i;
        TearDown();
    }
}

TEST_F(StoreSync, Ipv6FormsFileAddressesByInterfaceIdentifier) {
    ASSERT_EQ(sh("echo '00:01:00:01:2a:2b:2c:2d 2001:db8::5:6:7:8 7200' > /etc/dhcp6s.leases").status, 0);
    lhost *h = add_host("02:00:00:00:20:08", "rax1.0", "");
    sync6(h, "2001:db8::1:2:3:4", 14);
    ASSERT_TRUE(has_mac(kOidHost, 1, h->mac));
    EXPECT_EQ(num<int32_t>(kOidHost, 1, "X_ZN_V6LeaseTimeRemaining"), -1);
    EXPECT_EQ(text(kOidHost, 1, "X_ZN_GUAIPAddress"), "") << "no link-local address stored yet";
    EXPECT_EQ(num<uint8_t>(kOidHost, 1, "Active"), 0);
    EXPECT_EQ(text(kOidHost, 1, "Vendor"), "");

    sync6(h, "fe80::1:2:3:4", 2);
    EXPECT_EQ(text(kOidHost, 1, "X_ZN_IPV6LocalAddress"), "fe80::1:2:3:4");
    sync6(h, "2001:db8::1:2:3:4", 14);
    EXPECT_EQ(text(kOidHost, 1, "X_ZN_GUAIPAddress"), "2001:db8::1:2:3:4");
    EXPECT_EQ(num<uint8_t>(kOidHost, 1, "ipv6Active"), 0) << "same identifier as the link-local address";
    sync6(h, "2001:db8::5:6:7:8", 14);
    EXPECT_EQ(text(kOidHost, 1, "X_ZN_IPV6Address"), "2001:db8::5:6:7:8");
    EXPECT_EQ(num<uint8_t>(kOidHost, 1, "ipv6Active"), 1);
    EXPECT_EQ(num<int32_t>(kOidHost, 1, "X_ZN_V6LeaseTimeRemaining"), 7200);
    EXPECT_EQ(text(kOidHost, 1, "X_ZN_DUID"), "00:01:00:01:2a:2b:2c:2d");

    // Not an address: no search, and no command.
    sync6(h, "2001:db8::9;touch /tmp/x", 14);
    EXPECT_NE(access("/tmp/x", F_OK), 0);
    EXPECT_EQ(num<int32_t>(kOidHost, 1, "X_ZN_V6LeaseTimeRemaining"), -1);

    wrapperZns_lanhostIPv6_set_offline(h);
    EXPECT_EQ(num<uint8_t>(kOidHost, 1, "ipv6Active"), 0);
    ASSERT_TRUE(has_mac(kOidOfflineHost, 1, h->mac));
    EXPECT_EQ(text(kOidOfflineHost, 1, "X_ZN_IPV6Address"), "2001:db8::5:6:7:8");
    EXPECT_EQ(num(kOidOfflineHost, 1, "UTCDowntime"), 0u) << "IPv6 writes no time";

    sync6(h, "2001:db8::5:6:7:8", 14);
    sync6(h, "2001:db8::a:6:7:8", 14);
    EXPECT_TRUE(has_mac(kOidOfflineHost, 1, h->mac)) << "IPv6 keeps the offline copy";
    wrapperZns_lanhostIPv6_delete(h->mac);
    EXPECT_EQ(num<uint8_t>(kOidHost, 1, "ipv6Active"), 0);
    EXPECT_TRUE(has_mac(kOidHost, 1, h->mac)) << "nothing is deleted";
}
