// The unchanged agent with real DHCP peers: dnsmasq serves br0 and reports
// each lease on the lease-time socket through its lease-change script, LAN
// hosts take leases with udhcpc, and hosts behind a bridged WAN connection
// send requests crafted on the wire.
#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <sstream>
#include <string>

#include "agent_process.h"
#include "shell.h"

using namespace std::chrono_literals;
using zntest::eventually;
using zntest::file_text;
using zntest::sh;

namespace {

using Params = std::map<std::string, std::string>;

constexpr const char *kAgentOut = "/tmp/agent.out";
constexpr const char *kHosts = "InternetGatewayDevice.LANDevice.1.Hosts";
constexpr const char *kWanIp = "InternetGatewayDevice.WANDevice.1.WANConnectionDevice.1.WANIPConnection.1";
// The store path of the ports lan3 and eth3.
constexpr const char *kBridgedPort = "InternetGatewayDevice.LANDevice.1.LANEthernetInterfaceConfig.4";
constexpr int kLeaseSeconds = 3600;

struct Peer {
    const char *name, *port, *mac;
};

pid_t agent;

// The parameters of the Host object of mac, none when there is no such object.
Params host_params(const std::string &mac) {
    const std::string prefix = std::string(kHosts) + ".Host.";
    std::map<std::string, Params> objects;
    std::istringstream lines(sh(std::string("znsUtil -l ") + kHosts).out);
    for (std::string line; std::getline(lines, line);) {
        const size_t dot = line.find('.', prefix.size()), eq = line.find('=');
        if (line.compare(0, prefix.size(), prefix) == 0 && dot < eq && eq != std::string::npos)
            objects[line.substr(0, dot)][line.substr(dot + 1, eq - dot - 1)] = line.substr(eq + 1);
    }
    for (auto &o : objects)
        if (o.second["MACAddress"] == mac)
            return o.second;
    return {};
}

bool shows(const Peer &p, const Params &want) {
    Params have = host_params(p.mac);
    for (const auto &w : want)
        if (have[w.first] != w.second)
            return false;
    return true;
}

std::string trace(const Peer &p) {
    std::string s;
    for (const auto &kv : host_params(p.mac))
        s += kv.first + "=" + kv.second + "\n";
    return s + "agent:\n" + file_text(kAgentOut);
}

void add(const Peer &p) { ASSERT_EQ(sh(std::string("vgw host add ") + p.name + " " + p.port + " " + p.mac).status, 0); }

// The address that udhcpc obtained, empty without a lease.
std::string take_lease(const Peer &p, const std::string &options) {
    const std::string out =
        sh(std::string("vgw host exec ") + p.name + " udhcpc -i eth0 -n -q -t 5 -s /bin/true " + options).out;
    const std::string mark = "lease of ";
    const size_t at = out.find(mark);
    return at == std::string::npos ? "" : out.substr(at + mark.size(), out.find(' ', at + mark.size()) - at - mark.size());
}

void send_dhcp(const Peer &p, int type, const std::string &ip, const std::string &name) {
    ASSERT_EQ(sh(std::string("vgw host exec ") + p.name + " " ZN_BUILD_DIR "/tests/lanhost_dhcp_send eth0 " +
                 std::to_string(type) + " " + p.mac + " " + ip + " " + name)
                  .status,
              0);
}

// The first request may come before the bridge has reported the host, so it
// is sent again each second until the store shows it.
bool request_until_shown(const Peer &p, const std::string &ip, const std::string &name) {
    auto last = std::chrono::steady_clock::time_point{};
    return eventually(
        [&] {
            if (std::chrono::steady_clock::now() - last > 1s) {
                send_dhcp(p, 3, ip, name);
                last = std::chrono::steady_clock::now();
            }
            return shows(p, {{"IPAddress", ip}, {"AddressSource", "DHCP"}, {"LeaseTimeRemaining", "-1"},
                             {"HostName", name}});
        },
        20s);
}

} // namespace

class DhcpSnooping : public testing::Test {
protected:
    static void SetUpTestSuite() {
        ASSERT_EQ(sh("[ -e /sys/class/net/br0 ] || vgw lan up").status, 0);
        ASSERT_EQ(sh(std::string("znsUtil -s ") + kWanIp + " ConnectionType string IP_Bridged && znsUtil -s " +
                     kWanIp + " X_ZN_LanInterface string " + kBridgedPort)
                      .status,
                  0);
        ASSERT_EQ(sh("echo 3 > /tmp/zn_event_agent_lanhost_debug").status, 0);
        agent = zntest::start_agent(kAgentOut);
        ASSERT_TRUE(eventually([] { return file_text("/proc/net/unix").find("/tmp/leasetime_unix") != std::string::npos; }));
        ASSERT_EQ(sh("ZN_LEASE_NOTIFY=" ZN_BUILD_DIR "/tests/lanhost_lease_notify dnsmasq --port=0 --interface=br0 "
                     "--bind-interfaces --dhcp-range=192.168.1.100,192.168.1.150," +
                     std::to_string(kLeaseSeconds) +
                     " --dhcp-leasefile=/etc/dnsmasq.leases --dhcp-script=" ZN_SOURCE_DIR
                     "/tests/lanhost/dnsmasq_lease.sh --pid-file=/tmp/dnsmasq.pid --log-facility=/tmp/dnsmasq.log")
                      .status,
                  0);
    }
    static void TearDownTestSuite() {
        sh("kill $(cat /tmp/dnsmasq.pid)");
        zntest::stop_process(agent);
    }
};

TEST_F(DhcpSnooping, LeasedHostsShowWithTheirNameAndLeaseTime) {
    const struct {
        Peer peer;
        const char *options, *name;
    } cases[] = {
        {{"leased1", "eth1", "02:00:00:00:40:01"}, "-x hostname:laptop-1", "laptop-1"},
        {{"leased2", "lan1", "02:00:00:00:40:02"}, "-x hostname:a", "unknown"},
        {{"leased3", "lan2", "02:00:00:00:40:03"}, "", "unknown"}, // the script reports "*"
    };
    for (const auto &c : cases) {
        add(c.peer);
        const std::string ip = take_lease(c.peer, c.options);
        ASSERT_NE(ip, "") << file_text("/tmp/dnsmasq.log");
        EXPECT_TRUE(eventually([&] {
            return shows(c.peer, {{"IPAddress", ip}, {"AddressSource", "DHCP"}, {"HostName", c.name}});
        })) << trace(c.peer);
        const int lease = atoi(host_params(c.peer.mac)["LeaseTimeRemaining"].c_str());
        EXPECT_GT(lease, kLeaseSeconds - 60) << trace(c.peer);
        EXPECT_LE(lease, kLeaseSeconds);
    }
}

TEST_F(DhcpSnooping, RequestsCountOnlyFromHostsBehindABridgedConnection) {
    const Peer bridged1{"bridged1", "lan3", "02:00:00:00:50:01"}, bridged2{"bridged2", "eth3", "02:00:00:00:50:02"},
        ordinary{"ordinary", "lan4", "02:00:00:00:50:03"};
    add(bridged1);
    add(bridged2);
    add(ordinary);
    ASSERT_TRUE(request_until_shown(bridged1, "192.168.1.51", "bridged-one")) << trace(bridged1);
    ASSERT_TRUE(request_until_shown(bridged2, "192.168.1.52", "bridged-two")) << trace(bridged2);
    const std::string leased = take_lease(ordinary, "-x hostname:ordinary");
    ASSERT_NE(leased, "");
    ASSERT_TRUE(eventually([&] { return shows(ordinary, {{"IPAddress", leased}, {"HostName", "ordinary"}}); }))
        << trace(ordinary);
    const Params before = host_params(ordinary.mac);

    send_dhcp(bridged1, 1, "192.168.1.61", "discovered");
    send_dhcp(ordinary, 3, "192.168.1.62", "renamed");
    // Read from the same socket after the two above: once it shows, they were read.
    send_dhcp(bridged2, 3, "192.168.1.53", "bridged-two");
    ASSERT_TRUE(eventually([&] { return shows(bridged2, {{"IPAddress", "192.168.1.53"}}); })) << trace(bridged2);
    EXPECT_TRUE(shows(bridged1, {{"IPAddress", "192.168.1.51"}, {"HostName", "bridged-one"}})) << trace(bridged1);
    Params after = host_params(ordinary.mac);
    for (const char *p : {"IPAddress", "AddressSource", "HostName", "LeaseTimeRemaining"})
        EXPECT_EQ(after[p], before.at(p)) << p;
}
