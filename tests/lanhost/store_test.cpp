// The tracker's store at its edges, against the gateway's own store and the
// DHCP server's lock: what no system test reaches. Publication itself is
// proven with the agent (dhcp_system_test, liveness_system_test,
// ipv6_system_test, useragent_system_test); the lease line parser on any
// bytes by lease_line_fuzz.
#include <sys/file.h>

#include <thread>

#include "tracker.h"

using namespace zntest;

namespace {

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

} // namespace

class StoreSync : public TrackerTest {
protected:
    void TearDown() override {
        TrackerTest::TearDown();
        sh("rm -f /etc/dnsmasq.leases");
    }
};

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
