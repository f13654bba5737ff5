// Publication of host records in the store, against the gateway's own store,
// lease files and lock. A snooped request deciding the source is proven with
// the agent (dhcp_system_test, useragent_system_test); the lease line parser
// on any bytes by lease_line_fuzz.
#include <sys/file.h>
#include <sys/sysinfo.h>

#include <ctime>

#include "datamodel.h"
#include "tracker.h"

using namespace zntest;

namespace {

// The wall clock as the tracker reads it; a value set here stands in for it.
time_t fakeNow;

const std::string kHosts = "InternetGatewayDevice.LANDevice.1.Hosts.";

// Fills the table of oid with objects of MAC 02:00:00:TAG:00:i and UTCDowntime
// from downtimes, 1000 + i beyond them.
void fill(uint32_t oid, uint8_t tag, const std::vector<uint32_t> &downtimes) {
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

// What the service outside the agent writes into the temporary MAC table.
testing::AssertionResult set_temp_type(const std::string &mac, int type) {
    const std::string entry = kHosts + "X_ZN_TempMacTable.254";
    return run("znsUtil -a " + entry + " && znsUtil -s " + entry + " MACAddress mac " + mac + " && znsUtil -s " +
               entry + " DeviceType uint " + std::to_string(type));
}

uint32_t uptime() {
    struct sysinfo info {};
    sysinfo(&info);
    return uint32_t(info.uptime);
}

} // namespace

extern "C" time_t time(time_t *out) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const time_t t = fakeNow ? fakeNow : now.tv_sec;
    if (out)
        *out = t;
    return t;
}

TEST(StoreLayout, TheTrackerReadsRecordsWhereTheModelPutsTheirFields) {
    // The WAN connections go by path in the tracker: their objects are the model's 23 and 24.
    const zns::ObjectLayout *host = zns::dm_object(kOidHost), *offline = zns::dm_object(kOidOfflineHost),
                            *temp = zns::dm_object(kOidTempMacTable), *ip = zns::dm_object(23),
                            *ppp = zns::dm_object(24);
    const std::tuple<const zns::ObjectLayout *, const char *, size_t> fields[] = {
        {host, "UTCDowntime", kHostUtcDowntimeAt},
        {host, "DeviceType", kHostDeviceTypeAt},
        {host, "MACAddress", kHostMacAt},
        {host, "IPAddress", kHostIpAddressAt},
        {host, "AddressSource", kHostAddressSourceAt},
        {host, "Layer2Interface", kHostLayer2InterfaceAt},
        {host, "InterfaceType", kHostInterfaceTypeAt},
        {host, "X_ZN_IPV6Address", kHostIpv6AddressAt},
        {host, "X_ZN_IPV6LocalAddress", kHostIpv6LocalAddressAt},
        {host, "X_ZN_GUAIPAddress", kHostGuaAddressAt},
        {host, "X_ZN_DUID", kHostDuidAt},
        {host, "CustomiseName", kHostCustomiseNameAt},
        {host, "LeaseTimeRemaining", kHostLeaseTimeAt},
        {host, "Active", kHostActiveAt},
        {host, "ipv6Active", kHostIpv6ActiveAt},
        {host, "HostName", kHostHostNameAt},
        {host, "Vendor", kHostVendorAt},
        {offline, "UTCDowntime", kOfflineUtcDowntimeAt},
        {offline, "MACAddress", kOfflineMacAt},
        {zns::dm_object(kOidHosts), "HostNumberOfEntries", kHostsNumberAt},
        {temp, "DeviceType", kTempDeviceTypeAt},
        {temp, "MACAddress", kTempMacAt},
        {ip, "ConnectionType", kWanIpTypeAt},
        {ip, "X_ZN_LanInterface", kWanIpBindingAt},
        {ppp, "ConnectionType", kWanPppTypeAt},
        {ppp, "X_ZN_LanInterface", kWanPppBindingAt},
    };
    for (const auto &[object, name, at] : fields) {
        const zns::ParamLayout *param = object ? zns::dm_param(object, name) : nullptr;
        ASSERT_NE(param, nullptr) << name;
        EXPECT_EQ(param->offset, at) << object->def->path << " " << name;
    }
    EXPECT_EQ(zns::dm_param(host, "X_ZN_IPV6LocalAddress")->size, kHostIpv6LocalAddressSize);
    EXPECT_EQ(zns::dm_object(kOidHosts)->def->counter_offset, int32_t(kHostsSaveCounterAt));
}

class StoreSync : public TrackerTest {
protected:
    void TearDown() override {
        TrackerTest::TearDown();
        fakeNow = 0;
        sh("rm -f /etc/dnsmasq.leases /etc/dhcp6s.leases");
    }
};

TEST_F(StoreSync, FirstIpv4SyncPublishesAStaticHostNamedByItsDeviceType) {
    // MAC, port, its type in the temporary MAC table before the sync (0: none), what it shows
    const std::tuple<const char *, const char *, int, std::string> cases[] = {
        {"02:00:00:00:20:01", "eth1", 0, "HostName=PC;DeviceType=0;InterfaceType=Ethernet"},
        {"02:00:00:00:20:02", "eth1", 1, "HostName=Phone;DeviceType=1"},
        {"02:00:00:00:20:03", "eth1", 3, "HostName=PC;DeviceType=3"},
        {"02:00:00:00:20:04", "ra0.0", 0, "HostName=PC;DeviceType=0;InterfaceType=802.11"}, // the port doesn't type it
    };
    int count = 0;
    for (const auto &[mac, port, tempType, want] : cases) {
        ASSERT_TRUE(!tempType || set_temp_type(mac, tempType));
        sync4(add_host(mac, port, "192.168.1.20"));
        EXPECT_EQ(differences(host_object(mac), want + ";Active=1;AddressSource=Static;IPAddress=192.168.1.20;"
                                                       "Vendor=unknown;LeaseTimeRemaining=0"),
                  "")
            << mac;
        EXPECT_NE(host_object(mac)["StartUptime"], "0");
        EXPECT_FALSE(host_object(mac, "X_ZN_HostCustomise").empty()) << mac;
        EXPECT_EQ(hosts_count(), std::to_string(++count));
        sh("znsUtil -d " + kHosts + "X_ZN_TempMacTable.254");
    }
    // Typed after its first synchronisation, a host keeps its default name.
    ASSERT_TRUE(set_temp_type("02:00:00:00:20:01", 1));
    lhost *first = list_find_lhost("02:00:00:00:20:01");
    EXPECT_EQ(getMacTableDeviceType(first->mac), 1) << "offered, not called";
    sync4(first);
    EXPECT_EQ(differences(host_object("02:00:00:00:20:01"), "DeviceType=1;HostName=PC"), "");
}

// The first line that the lease file has for a Static host's address tells
// its source, name and lease time. Text that isn't an address is not searched
// for: it never reaches the shell.
TEST_F(StoreSync, TheLeaseFileLineOfAStaticAddressMakesItDhcp) {
    const std::string dhcp = "AddressSource=DHCP;HostName=";
    const std::tuple<const char *, std::string, std::string> cases[] = {
        {"192.168.1.21", "1 m 192.168.1.21 my\x1Fphone\x1F 01:aa 86400", dhcp + "my phone ;LeaseTimeRemaining=86400"},
        {"192.168.1.21", "1\tm\t192.168.1.21\tpc\t*\t4294967295", dhcp + "pc;LeaseTimeRemaining=-1"},
        {"192.168.1.21", "1 m 192.168.1.21 * 01:aa 600", dhcp + "unknown;LeaseTimeRemaining=600"},
        {"192.168.1.21", "1 m 192.168.1.21 laptop 01:aa", dhcp + "laptop;LeaseTimeRemaining=0"},
        {"192.168.1.21", "1 m 192.168.1.21", dhcp + "unknown;LeaseTimeRemaining=0"},
        {"192.168.1.21", "1 m 192.168.1.21 a-name-of-forty-characters-is-too-long-x id 5",
         dhcp + "a-name-of-forty-characters-is-t;LeaseTimeRemaining=5"},
        {"192.168.1.21", "1 m 192.168.1.21 n id 12abc", dhcp + "n;LeaseTimeRemaining=12"},
        {"192.168.1.21", "1 m 192.168.1.210 longer id 7\n1 m 192.168.1.21 n id 8",
         dhcp + "longer;LeaseTimeRemaining=7"},
        {"192.168.1.21", "1 m 192.168.1.22 n id 8", "AddressSource=Static;HostName=PC;LeaseTimeRemaining=0"},
        {"1;touch /tmp/x", "1 m 1;touch /tmp/x n id 8", "AddressSource=Static"},
        {"$(touch /tmp/x)", "", "AddressSource=Static"},
        {"`touch /tmp/x`", "", "AddressSource=Static"},
    };
    for (const auto &[ip, line, want] : cases) {
        std::ofstream("/etc/dnsmasq.leases") << line << "\n";
        sync4(add_host("02:00:00:00:20:02", "eth1", ip));
        EXPECT_EQ(differences(host_object("02:00:00:00:20:02"), want), "") << line;
        EXPECT_NE(access("/tmp/x", F_OK), 0) << ip;
        TearDown();
    }
}

TEST_F(StoreSync, TheLeaseFileIsReadUnderTheDhcpServersLock) {
    const int lock = open("/etc/dnsmasq.leases.lock", O_WRONLY | O_CREAT, 0666);
    ASSERT_EQ(flock(lock, LOCK_EX), 0);
    lhost *h = add_host("02:00:00:00:20:09", "eth1", "192.168.1.29");
    std::thread tracker([h] { sync4(h); });
    const bool waits = eventually([] { return file_text("/proc/locks").find("-> FLOCK") != std::string::npos; });
    // What the server writes while it holds the lock is what the tracker reads.
    ASSERT_TRUE(run("echo '1 02:00:00:00:20:09 192.168.1.29 written-under-lock * 60' > /etc/dnsmasq.leases"));
    flock(lock, LOCK_UN);
    tracker.join();
    close(lock);
    EXPECT_TRUE(waits) << "the tracker never waited for the lock";
    EXPECT_EQ(stored(h, "HostName"), "written-under-lock");
}

TEST_F(StoreSync, OfflineCopyTakesTheDowntimeAndOnlyIpv6AddressesNoLongerInUse) {
    // the wall clock, ipv6Active, the IPv6 address in the copy
    const std::tuple<time_t, std::string, std::string> cases[] = {
        {1500000000, "0", "2001:db8::5"}, {1499999999, "0", "2001:db8::5"}, {1500000000, "1", ""}};
    for (const auto &[clock, ipv6Active, copied] : cases) {
        lhost *h = add_host("02:00:00:00:20:05", "eth1", "192.168.1.23");
        sync4(h);
        ASSERT_TRUE(run("znsUtil -s " + kHosts + "Host.1 X_ZN_IPV6Address string 2001:db8::5 && znsUtil -s " + kHosts +
                        "Host.1 ipv6Active bool " + ipv6Active));
        fakeNow = clock;
        const uint32_t before = uptime();
        wrapperZns_lanhost_set_offline(h);
        const uint32_t downtime = std::stoul(stored(h, "UTCDowntime")), after = uptime();
        if (clock >= 1500000000)
            EXPECT_EQ(downtime, uint32_t(clock));
        else
            EXPECT_TRUE(downtime >= before && downtime <= after) << "the uptime stands in for an unset clock";
        EXPECT_EQ(differences(host_object("02:00:00:00:20:05", "OfflineHost"),
                              "UTCDowntime=" + std::to_string(downtime) +
                                  ";IPAddress=192.168.1.23;HostName=PC;X_ZN_IPV6Address=" + copied),
                  "");
        EXPECT_EQ(stored(h, "Active") + hosts_count(), "00");
        TearDown();
    }
}

// Offered, not called: the longest offline Host object, and the deletion of
// an inactive one without an address, with its customise object.
TEST_F(StoreSync, UnusedStoreOperationsFindTheirHostObjects) {
    lhost *h = add_host("02:00:00:00:20:05", "eth1", "192.168.1.23");
    sync4(h);
    wrapperZns_lanhost_set_offline(h);
    h->active = 0;
    EXPECT_EQ(wrapperZns_lanhost_get_longestOffline(), 1);
    ASSERT_TRUE(run("znsUtil -s " + kHosts + "Host.1 IPAddress string ''"));
    wrapperZns_unusedLanhost_delete(h->mac);
    EXPECT_EQ(hosts_table("Host").size() + hosts_table("X_ZN_HostCustomise").size(), 0u);
}

TEST_F(StoreSync, TheHostBeyondAFullTableStaysInMemory) {
    fill(kOidHost, 1, {});
    ASSERT_TRUE(run("znsUtil -s InternetGatewayDevice.LANDevice.1.Hosts HostNumberOfEntries uint 7"));
    lhost *h = add_host("02:00:00:00:20:06", "eth1", "192.168.1.24");
    sync4(h);
    EXPECT_EQ(wrapperZns_get_lanhost_byMac(h->mac), nullptr);
    EXPECT_EQ(hosts_count(), "7") << "nothing written, not even the count";
}

TEST_F(StoreSync, AFullOfflineTableReplacesTheLongestOffline) {
    const std::tuple<std::vector<uint32_t>, int> cases[] = {{{100, 50, 50}, 2}, {{100, 0, 7}, 3}};
    for (const auto &[downtimes, replaced] : cases) {
        fill(kOidOfflineHost, 2, downtimes);
        lhost *h = add_host("02:00:00:00:20:07", "eth1", "192.168.1.25");
        sync4(h);
        wrapperZns_lanhost_set_offline(h);
        EXPECT_EQ(differences(hosts_table("OfflineHost")[replaced],
                              "MACAddress=02:00:00:00:20:07;UTCDowntime=" + stored(h, "UTCDowntime") +
                                  ";Layer2Interface=InternetGatewayDevice.LANDevice.1.LANEthernetInterfaceConfig.2"),
                  "")
            << downtimes[1];
        TearDown();
    }
}

TEST_F(StoreSync, Ipv6FormsFileAddressesByInterfaceIdentifier) {
    ASSERT_TRUE(run("echo '00:01:00:01:2a:2b:2c:2d 2001:db8::5:6:7:8 7200' > /etc/dhcp6s.leases"));
    lhost *h = add_host("02:00:00:00:20:08", "rax1.0");
    // one synchronisation after the other, and what the Host object shows then
    const std::tuple<const char *, int, const char *> steps[] = {
        {"2001:db8::1:2:3:4", 14, "X_ZN_V6LeaseTimeRemaining=-1;X_ZN_GUAIPAddress=;Active=0;Vendor="}, // not yet
        {"fe80::1:2:3:4", 2, "X_ZN_IPV6LocalAddress=fe80::1:2:3:4"},
        {"2001:db8::1:2:3:4", 14, "X_ZN_GUAIPAddress=2001:db8::1:2:3:4;ipv6Active=0"}, // the link-local identifier
        {"2001:db8::5:6:7:8", 14,
         "X_ZN_IPV6Address=2001:db8::5:6:7:8;ipv6Active=1;X_ZN_V6LeaseTimeRemaining=7200;X_ZN_DUID=00:01:00:01:2a:2b:"
         "2c:2d"},
        {"2001:db8::9;touch /tmp/x", 14, "X_ZN_V6LeaseTimeRemaining=-1"}, // not an address: no search, no command
    };
    for (const auto &[addr, scope, want] : steps) {
        wrapperZns_lanhost_update(h->mac, addr, AF_INET6, scope);
        EXPECT_EQ(differences(host_object("02:00:00:00:20:08"), want), "") << addr;
    }
    EXPECT_NE(access("/tmp/x", F_OK), 0);

    wrapperZns_lanhostIPv6_set_offline(h);
    EXPECT_EQ(stored(h, "ipv6Active"), "0");
    EXPECT_EQ(differences(host_object("02:00:00:00:20:08", "OfflineHost"),
                          "X_ZN_IPV6Address=2001:db8::5:6:7:8;UTCDowntime=0"),
              "")
        << "IPv6 writes no time";
    wrapperZns_lanhost_update(h->mac, "2001:db8::a:6:7:8", AF_INET6, 14);
    EXPECT_FALSE(host_object("02:00:00:00:20:08", "OfflineHost").empty()) << "IPv6 keeps the offline copy";
    wrapperZns_lanhostIPv6_delete(h->mac);
    EXPECT_EQ(differences(host_object("02:00:00:00:20:08"), "ipv6Active=0;MACAddress=02:00:00:00:20:08"), "")
        << "nothing is deleted";
}
