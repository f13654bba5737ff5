// The unchanged agent in a virtual gateway: hosts are learnt from the bridge,
// published with the addresses their neighbour entries give, probed when
// silent, taken offline, moved, and let go when the bridge forgets them. The
// tracker's log bears witness where neither the store nor the bus can: to
// probes and their answers, and to records it drops.

#include "shell.h"

using namespace std::chrono_literals;
using namespace zntest;

namespace {

constexpr const char *kWan = "InternetGatewayDevice.WANDevice.1.WANConnectionDevice.1.WANIPConnection.1";
constexpr const char *kEthernetPath = "InternetGatewayDevice.LANDevice.1.LANEthernetInterfaceConfig.";
constexpr const char *kFdbLimit = "python3 " ZN_SOURCE_DIR "/tools/vgw/fdb_limit.py br0";

size_t count(const std::string &text, const std::string &part) {
    size_t n = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        n++;
    return n;
}

std::string log() { return file_text(kAgentOut); }

// How many Host objects have Active 1, which HostNumberOfEntries counts.
std::string active_hosts() {
    return std::to_string(count(sh("znsUtil -l InternetGatewayDevice.LANDevice.1.Hosts").out, ".Active=1\n"));
}

// A host that sends nothing of its own accord: no IPv6 on any of its links,
// so no solicitations.
void add_host(const std::string &name, const std::string &port, const std::string &mac, const std::string &addr) {
    ASSERT_TRUE(run("vgw host add " + name + " " + port + " " + mac + " " + addr + "/24 && vgw host exec " + name +
                    " sysctl -qw net.ipv6.conf.eth0.disable_ipv6=1 net.ipv6.conf.default.disable_ipv6=1"));
}

void talk(const std::string &name) { ASSERT_TRUE(run("vgw host exec " + name + " ping -c 2 -i 0.2 192.168.1.1")); }

// With 8 the host answers no ARP request: it falls silent.
void answer_arp(const std::string &name, bool answer) {
    ASSERT_TRUE(run("vgw host exec " + name + " sysctl -qw net.ipv4.conf.all.arp_ignore=" + (answer ? "0" : "8")));
}

bool published(const std::string &mac) { return host_object(mac)["Active"] == "1"; }

} // namespace

class Liveness : public testing::Test {
protected:
    static void SetUpTestSuite() {
        // Neighbour entries turn stale within seconds, so that the kernel
        // confirms a returning host reachable again soon after it speaks.
        ASSERT_TRUE(run("vgw lan up && echo 3 > /tmp/zn_event_agent_lanhost_debug && "
                        "echo 02:00:00:00:00:01 > /etc/macAddrBase && "
                        "sysctl -qw net.ipv4.neigh.br0.base_reachable_time_ms=4000"));
    }
    void SetUp() override { ASSERT_GT(agent_ = start_agent(), 0); }
    void TearDown() override {
        if (agent_ > 0)
            stop_process(agent_);
        sh("ip link set br0 type bridge ageing_time 30000");
        sh(kFdbLimit + std::string(" 0"));
        sh(std::string("znsUtil -s ") + kWan + " ConnectionType string IP_Routed");
    }
    pid_t agent_ = -1;
};

TEST_F(Liveness, AWiredHostIsProbedWhenSilentGoesOfflineIsForgottenAndComesBack) {
    const std::string mac = "02:00:00:00:10:01";
    ASSERT_TRUE(run("ip link set br0 type bridge ageing_time 1200"));
    add_host("pc", "eth1", mac, "192.168.1.10");
    talk("pc");
    ASSERT_TRUE(eventually([&] { return published(mac); }, 15s)) << log();
    EXPECT_EQ(differences(host_object(mac), "IPAddress=192.168.1.10;AddressSource=Static;InterfaceType=Ethernet;"
                                            "HostName=PC;Layer2Interface=" +
                                                std::string(kEthernetPath) + "2"),
              "");
    EXPECT_EQ(hosts_count(), active_hosts());

    // Silent for 6 seconds, it gets one probe, and doesn't answer.
    answer_arp("pc", false);
    const size_t before = log().size();
    ASSERT_TRUE(eventually([&] { return host_object(mac)["Active"] == "0"; }, 20s)) << log();
    EXPECT_NE(host_object(mac)["UTCDowntime"], "0");
    EXPECT_FALSE(host_object(mac, "OfflineHost").empty());
    EXPECT_EQ(hosts_count(), active_hosts());

    // When the bridge forgets pc, the record goes and the Host object stays.
    EXPECT_TRUE(eventually([&] { return count(log(), "set offline and delet lhost macAddr=" + mac) > 0; }, 30s))
        << log();
    EXPECT_EQ(count(log().substr(before), "send arpping to mac=" + mac), 1u);
    EXPECT_EQ(host_object(mac)["Active"], "0");

    // Back on the wire for as long as the kernel takes to call it reachable again.
    answer_arp("pc", true);
    EXPECT_TRUE(eventually(
        [&] {
            talk("pc");
            return published(mac) && host_object(mac, "OfflineHost").empty();
        },
        30s))
        << log();
    EXPECT_EQ(hosts_count(), active_hosts());
}

TEST_F(Liveness, WirelessHostLeavesOnTheDriversMessageAndIsNeverProbed) {
    const std::string mac = "02:00:00:00:20:01";
    add_host("phone", "ra0.0", mac, "192.168.1.20");
    talk("phone");
    ASSERT_TRUE(eventually([&] { return published(mac); }, 15s)) << log();
    EXPECT_EQ(host_object(mac)["InterfaceType"], "802.11");
    answer_arp("phone", false);
    ASSERT_TRUE(
        eventually([&] { return count(log(), "mac=" + mac + " from wlan interface ra0.0 not send ARP") > 0; }, 15s))
        << log();
    EXPECT_EQ(count(log(), "send arpping to mac=" + mac), 0u);

    ASSERT_TRUE(run("znkernel wlan-leave " + mac));
    EXPECT_TRUE(eventually([&] { return host_object(mac)["Active"] == "0"; })) << log();
    EXPECT_FALSE(host_object(mac, "OfflineHost").empty());
}

TEST_F(Liveness, HostOnABridgedWanPortIsProbedOnEachReportAndTakesAddressesFromReplies) {
    const std::string mac = "02:00:00:00:40:01", other = "02:00:00:00:40:02";
    ASSERT_TRUE(run(std::string("znsUtil -s ") + kWan + " ConnectionType string IP_Bridged && znsUtil -s " + kWan +
                    " X_ZN_LanInterface string " + kEthernetPath + "8," + kEthernetPath + "10"));
    add_host("bridged", "eth7", mac, "192.168.1.40");
    add_host("routed", "eth8", other, "192.168.1.41");
    talk("bridged");
    talk("routed");
    ASSERT_TRUE(eventually([&] { return published(mac) && published(other); }, 15s)) << log();
    EXPECT_EQ(host_object(mac)["Layer2Interface"], std::string(kEthernetPath) + "8");

    // A second cable from the same station to port eth9: each move between
    // the two bridged ports is a report, and each report a probe.
    ASSERT_TRUE(run("ip link add eth9 type veth peer name br1 netns vgw-bridged && ip link set eth9 master br0 up && "
                    "ip -n vgw-bridged link set br1 address " +
                    mac + " up"));
    const std::string report = "Bridge, macAddr=" + mac, probe = "send arpping to mac=" + mac,
                      answer = "arpping detect mac=" + mac + " still online";
    for (const char *via : {"br1", "eth0", "br1"}) {
        const std::string before = log();
        sh(std::string("vgw host exec bridged arping -D -c 1 -w 1 -I ") + via + " 192.168.1.1");
        EXPECT_TRUE(eventually([&] {
            const std::string now = log();
            return count(now, report) > count(before, report) && count(now, probe) > count(before, probe) &&
                   count(now, answer) > count(before, answer);
        })) << via
            << "\n"
            << log();
    }
    EXPECT_EQ(host_object(mac)["Layer2Interface"], std::string(kEthernetPath) + "10");
    EXPECT_EQ(host_object(mac)["InterfaceType"], "Ethernet");

    // A reply that names another address, sent to the gateway by each host
    // from the link where the bridge has it already.
    auto reply_from = [](const std::string &host, const std::string &link, const std::string &hexMac) {
        return run("vgw host exec " + host + " python3 " ZN_SOURCE_DIR "/tools/vgw/send.py frame " + link +
                   " 020000000001" + hexMac + "08060001080006040002" + hexMac + "0a090909020000000001c0a80101");
    };
    ASSERT_TRUE(reply_from("bridged", "br1", "020000004001"));
    ASSERT_TRUE(reply_from("routed", "eth0", "020000004002"));
    EXPECT_TRUE(eventually([&] { return host_object(mac)["IPAddress"] == "10.9.9.9"; })) << log();
    EXPECT_TRUE(eventually([&] {
        return count(log(), "arpIp=10.9.9.9 lhostIp=192.168.1.41 change, mac=" + other) > 0;
    })) << log();
    EXPECT_EQ(host_object(other)["IPAddress"], "192.168.1.41") << "an unbridged port keeps its address";
}

TEST_F(Liveness, TheBridgesLimitOfLearntEntriesBoundsTheRecordsOfAFlood) {
    // A host sends from more MACs than br0 may learn, its own the first of
    // them. The agent makes a record of each MAC the bridge learnt and of no
    // other, and when the bridge forgets them it lets all of them go.
    const struct {
        int limit, flood;
    } rows[] = {{1, 5}, {10, 100}, {50, 2000}};
    ASSERT_TRUE(eventually([] { return log().find("macAgeingDetect timer call back") != std::string::npos; }));
    int row = 0;
    for (const auto &r : rows) {
        SCOPED_TRACE(r.limit);
        const std::string prefix = "02:00:0" + std::to_string(++row) + ":", host = "flood" + std::to_string(row),
                          limit = std::to_string(r.limit) + "\n";
        ASSERT_TRUE(run(kFdbLimit + std::string(" ") + std::to_string(r.limit)));
        add_host(host, "lan" + std::to_string(row), prefix + "00:00:00", "192.168.1.5" + std::to_string(row));
        ASSERT_TRUE(run("vgw host exec " + host + " python3 " ZN_SOURCE_DIR "/tools/vgw/send.py macs eth0 " +
                        std::to_string(row << 24) + " " + std::to_string(r.flood)));
        EXPECT_EQ(sh("bridge fdb show br br0 | grep -c ^" + prefix).out, limit);
        auto records = [&] { return std::to_string(count(log(), "RTM_NEWNEIGH macAddr:" + prefix)) + "\n"; };
        EXPECT_TRUE(eventually([&] { return records() == limit; }, 30s)) << records() << log();

        ASSERT_TRUE(run("ip link set br0 type bridge fdb_flush && vgw host del " + host));
        EXPECT_TRUE(eventually(
            [&] { return std::to_string(count(log(), "delet lhost macAddr=" + prefix)) + "\n" == limit; }, 30s))
            << log();
        EXPECT_EQ(records(), limit);
    }
    EXPECT_EQ(kill(agent_, 0), 0);
}
