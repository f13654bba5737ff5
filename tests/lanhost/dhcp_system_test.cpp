// The unchanged agent with real DHCP peers: dnsmasq serves br0 and reports
// each lease on the lease-time socket through its lease-change script, LAN
// hosts take leases with udhcpc, and hosts behind a bridged WAN connection
// send requests crafted on the wire.

#include "shell.h"

using namespace std::chrono_literals;
using namespace zntest;

namespace {

constexpr const char *kWanIp = "InternetGatewayDevice.WANDevice.1.WANConnectionDevice.1.WANIPConnection.1";
constexpr int kLeaseSeconds = 3600;

pid_t agent;

struct Peer {
    std::string name, port, mac;
};

std::string differs(const Peer &p, const std::string &want) { return differences(host_object(p.mac), want); }

testing::AssertionResult send_dhcp(const Peer &p, int type, const std::string &ip, const std::string &name) {
    return run("vgw host exec " + p.name + " python3 " ZN_SOURCE_DIR "/tools/vgw/send.py dhcp eth0 " +
               std::to_string(type) + " " + p.mac + " " + ip + " " + name);
}

// The first request may come before the bridge has reported the host, so it
// is sent again each second until the store shows it.
std::string request_until_shown(const Peer &p, const std::string &ip, const std::string &name) {
    const std::string want = "IPAddress=" + ip + ";AddressSource=DHCP;LeaseTimeRemaining=-1;HostName=" + name;
    auto last = std::chrono::steady_clock::time_point{};
    eventually(
        [&] {
            if (std::chrono::steady_clock::now() - last > 1s) {
                send_dhcp(p, 3, ip, name);
                last = std::chrono::steady_clock::now();
            }
            return differs(p, want).empty();
        },
        20s);
    return differs(p, want);
}

} // namespace

class DhcpSnooping : public testing::Test {
protected:
    static void SetUpTestSuite() {
        // The ports lan3 and eth3 serve the bridged connection.
        ASSERT_TRUE(run(std::string("vgw lan up && echo 3 > /tmp/zn_event_agent_lanhost_debug && znsUtil -s ") +
                        kWanIp + " ConnectionType string IP_Bridged && znsUtil -s " + kWanIp +
                        " X_ZN_LanInterface string InternetGatewayDevice.LANDevice.1.LANEthernetInterfaceConfig.4"));
        ASSERT_GT(agent = start_agent(), 0);
        ASSERT_TRUE(start_dnsmasq(kLeaseSeconds));
    }
    static void TearDownTestSuite() {
        sh("kill $(cat /tmp/dnsmasq.pid)");
        stop_process(agent);
    }
};

TEST_F(DhcpSnooping, LeasedHostsShowWithTheirNameAndLeaseTime) {
    // the host, its udhcpc options, its name and port in the store
    const std::tuple<Peer, const char *, const char *, const char *> cases[] = {
        {{"leased1", "eth1", "02:00:00:00:40:01"}, "-x hostname:laptop-1", "laptop-1", "2"},
        {{"leased2", "lan1", "02:00:00:00:40:02"}, "-x hostname:a", "unknown", "2"},
        {{"leased3", "lan2", "02:00:00:00:40:03"}, "", "unknown", "3"}, // the script reports "*"
    };
    for (const auto &[peer, options, name, port] : cases) {
        ASSERT_TRUE(run("vgw host add " + peer.name + " " + peer.port + " " + peer.mac));
        const std::string ip = take_lease(peer.name, options);
        ASSERT_NE(ip, "") << file_text("/tmp/dnsmasq.log");
        const std::string want = "IPAddress=" + ip + ";AddressSource=DHCP;HostName=" + name +
                                 ";Layer2Interface=InternetGatewayDevice.LANDevice.1.LANEthernetInterfaceConfig." +
                                 port;
        EXPECT_TRUE(eventually([&] { return differs(peer, want).empty(); })) << differs(peer, want);
        const int lease = atoi(host_object(peer.mac)["LeaseTimeRemaining"].c_str());
        EXPECT_TRUE(lease > kLeaseSeconds - 60 && lease <= kLeaseSeconds) << lease;
    }
}

TEST_F(DhcpSnooping, RequestsCountOnlyFromHostsBehindABridgedConnection) {
    const Peer bridged1{"bridged1", "lan3", "02:00:00:00:50:01"}, bridged2{"bridged2", "eth3", "02:00:00:00:50:02"},
        ordinary{"ordinary", "lan4", "02:00:00:00:50:03"};
    for (const Peer &p : {bridged1, bridged2, ordinary})
        ASSERT_TRUE(run("vgw host add " + p.name + " " + p.port + " " + p.mac));
    ASSERT_EQ(request_until_shown(bridged1, "192.168.1.51", "bridged-one"), "");
    ASSERT_EQ(request_until_shown(bridged2, "192.168.1.52", "bridged-two"), "");
    const std::string leased = "IPAddress=" + take_lease(ordinary.name, "-x hostname:ordinary") + ";HostName=ordinary";
    ASSERT_TRUE(eventually([&] { return differs(ordinary, leased).empty(); })) << differs(ordinary, leased);
    Object before = host_object(ordinary.mac);

    ASSERT_TRUE(send_dhcp(bridged1, 1, "192.168.1.61", "discovered"));
    ASSERT_TRUE(send_dhcp(ordinary, 3, "192.168.1.62", "renamed"));
    // Read from the same socket after the two above: once it shows, they were read.
    ASSERT_TRUE(send_dhcp(bridged2, 3, "192.168.1.53", "bridged-two"));
    ASSERT_TRUE(eventually([&] { return differs(bridged2, "IPAddress=192.168.1.53").empty(); }));
    EXPECT_EQ(differs(bridged1, "IPAddress=192.168.1.51;HostName=bridged-one"), "");
    for (const char *p : {"IPAddress", "AddressSource", "HostName", "LeaseTimeRemaining"})
        EXPECT_EQ(host_object(ordinary.mac)[p], before[p]) << p;
}
