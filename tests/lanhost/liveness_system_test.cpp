// The unchanged agent in a virtual gateway: hosts are learnt from the bridge,
// published with the addresses their neighbour entries give, probed when
// silent, taken offline, moved, and let go when the bridge forgets them.
#include <gtest/gtest.h>
#include <unistd.h>

#include <map>
#include <sstream>
#include <string>

#include "agent_process.h"
#include "libzn.h"
#include "shell.h"

using namespace std::chrono_literals;
using zntest::eventually;
using zntest::file_text;
using zntest::sh;

namespace {

constexpr const char *kAgentOut = "/tmp/agent.out";
constexpr const char *kHosts = "InternetGatewayDevice.LANDevice.1.Hosts";
constexpr const char *kWan = "InternetGatewayDevice.WANDevice.1.WANConnectionDevice.1.WANIPConnection.1";
constexpr const char *kEthernetPath = "InternetGatewayDevice.LANDevice.1.LANEthernetInterfaceConfig.";

using Object = std::map<std::string, std::string>;

// The objects of one table under Hosts ("Host", "OfflineHost") by index.
std::map<int, Object> table(const std::string &name) {
    std::map<int, Object> objects;
    std::istringstream lines(sh(std::string("znsUtil -l ") + kHosts).out);
    const std::string prefix = std::string(kHosts) + "." + name + ".";
    for (std::string line; std::getline(lines, line);) {
        if (line.compare(0, prefix.size(), prefix) != 0)
            continue;
        size_t dot = line.find('.', prefix.size()), eq = line.find('=', dot);
        if (dot == std::string::npos || eq == std::string::npos)
            continue;
        objects[std::stoi(line.substr(prefix.size()))][line.substr(dot + 1, eq - dot - 1)] = line.substr(eq + 1);
    }
    return objects;
}

// The object of the table whose MACAddress is mac; empty when there is none.
Object object_of(const std::string &mac, const std::string &name = "Host") {
    for (const auto &[index, object] : table(name))
        if (object.count("MACAddress") && object.at("MACAddress") == mac)
            return object;
    return {};
}

std::string param(const std::string &mac, const std::string &name) {
    Object o = object_of(mac);
    return o.count(name) ? o[name] : "";
}

int active_hosts() {
    int n = 0;
    for (const auto &[index, object] : table("Host"))
        n += object.count("Active") && object.at("Active") == "1";
    return n;
}

int host_number() { return std::stoi(sh(std::string("znsUtil -g ") + kHosts + " HostNumberOfEntries").out); }

size_t count(const std::string &text, const std::string &part) {
    size_t n = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        n++;
    return n;
}

// Seconds since the bridge last saw mac, or -1.
double silence(const std::string &mac) {
    brctl_fdb_entry_t records[128];
    const int n = brctl_getmacs("br0", records, 128);
    for (int i = 0; i < n; i++) {
        char text[18];
        const uint8_t *m = records[i].mac_addr;
        snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", m[0], m[1], m[2], m[3], m[4], m[5]);
        if (text == mac)
            return records[i].ageing_timer_value / 100.0;
    }
    return -1;
}

// A host that sends nothing of its own accord: no IPv6 on any of its links,
// so no solicitations.
void add_host(const std::string &name, const std::string &port, const std::string &mac, const std::string &addr) {
    ASSERT_EQ(sh("vgw host add " + name + " " + port + " " + mac + " " + addr + "/24 && vgw host exec " + name +
                 " sysctl -qw net.ipv6.conf.eth0.disable_ipv6=1 net.ipv6.conf.default.disable_ipv6=1")
                  .status,
              0);
}

void talk(const std::string &name) { ASSERT_EQ(sh("vgw host exec " + name + " ping -c 2 -i 0.2 192.168.1.1").status, 0); }

// With 8 the host answers no ARP request: it falls silent.
void answer_arp(const std::string &name, bool answer) {
    ASSERT_EQ(sh("vgw host exec " + name + " sysctl -qw net.ipv4.conf.all.arp_ignore=" + (answer ? "0" : "8")).status, 0);
}

bool published(const std::string &mac) { return param(mac, "Active") == "1"; }

} // namespace

class Liveness : public testing::Test {
protected:
    static void SetUpTestSuite() {
        // Neighbour entries turn stale within seconds, so that the kernel
        // confirms a returning host reachable again soon after it speaks.
        ASSERT_EQ(sh("vgw lan up && echo 3 > /tmp/zn_event_agent_lanhost_debug && "
                     "sysctl -qw net.ipv4.neigh.br0.base_reachable_time_ms=4000")
                      .status,
                  0);
    }
    void start(const std::string &baseMac = "02:00:00:00:00:01") {
        ASSERT_EQ(sh("echo " + baseMac + " > /etc/macAddrBase").status, 0);
        agent_ = zntest::start_agent(kAgentOut);
        ASSERT_TRUE(eventually([] { return sh("ip neigh show dev br0").out.empty(); }));
        sleep(1); // the flushes are behind it
    }
    void TearDown() override {
        if (agent_ > 0)
            zntest::stop_process(agent_);
        sh("ip link set br0 type bridge ageing_time 30000");
        sh(std::string("znsUtil -s ") + kWan + " ConnectionType string IP_Routed");
    }
    static std::string log() { return file_text(kAgentOut); }
    pid_t agent_ = -1;
};

TEST_F(Liveness, WiredHostIsPublishedGoesOfflineWhenSilentAndComesBack) {
    const std::string mac = "02:00:00:00:10:01";
    start();
    add_host("pc", "eth1", mac, "192.168.1.10");
    talk("pc");
    ASSERT_TRUE(eventually([&] { return published(mac); }, 15s)) << log();
    Object host = object_of(mac);
    EXPECT_EQ(host["IPAddress"], "192.168.1.10");
    EXPECT_EQ(host["AddressSource"], "Static");
    EXPECT_EQ(host["Layer2Interface"], std::string(kEthernetPath) + "2");
    EXPECT_EQ(host["InterfaceType"], "Ethernet");
    EXPECT_EQ(host["HostName"], "PC");
    EXPECT_EQ(host_number(), active_hosts());
    EXPECT_GE(host_number(), 1);

    answer_arp("pc", false);
    const size_t before = log().size();
    double silent = -1;
    ASSERT_TRUE(eventually([&] { return param(mac, "Active") == "0" && (silent = silence(mac)) >= 0; }, 20s)) << log();
    EXPECT_GE(silent, 9.0);
    EXPECT_LE(silent, 11.5);
    EXPECT_EQ(count(log().substr(before), "send arpping to mac=" + mac), 1u);
    EXPECT_NE(param(mac, "UTCDowntime"), "0");
    EXPECT_FALSE(object_of(mac, "OfflineHost").empty());
    EXPECT_EQ(host_number(), active_hosts());

    // Back on the wire for as long as the kernel takes to call it reachable again.
    answer_arp("pc", true);
    EXPECT_TRUE(eventually([&] {
        talk("pc");
        return published(mac) && object_of(mac, "OfflineHost").empty();
    }, 30s)) << log();
}

TEST_F(Liveness, HostThatAnswersTheProbeStaysOnline) {
    const std::string mac = "02:00:00:00:10:02";
    start();
    add_host("quiet", "eth2", mac, "192.168.1.11");
    talk("quiet");
    ASSERT_TRUE(eventually([&] { return published(mac); }, 15s)) << log();
    EXPECT_TRUE(eventually([&] { return count(log(), "arpping detect mac=" + mac + " still online") > 0; }, 15s))
        << log();
    EXPECT_EQ(param(mac, "Active"), "1");
    EXPECT_TRUE(object_of(mac, "OfflineHost").empty());
}

TEST_F(Liveness, HostMovedToAnotherPortChangesItsLayer2Interface) {
    const std::string mac = "02:00:00:00:10:03";
    start();
    add_host("mover", "eth3", mac, "192.168.1.12");
    talk("mover");
    ASSERT_TRUE(eventually([&] { return published(mac); }, 15s)) << log();
    EXPECT_EQ(param(mac, "Layer2Interface"), std::string(kEthernetPath) + "4");
    // A second cable from the same station to port eth4.
    ASSERT_EQ(sh("ip link add eth4 type veth peer name mv1 netns vgw-mover && ip link set eth4 master br0 up && "
                 "ip -n vgw-mover link set mv1 address " + mac + " up && "
                 "vgw host exec mover arping -D -c 1 -w 1 -I mv1 192.168.1.1; true")
                  .status,
              0);
    EXPECT_TRUE(eventually([&] { return param(mac, "Layer2Interface") == std::string(kEthernetPath) + "5"; }))
        << log();
    EXPECT_EQ(param(mac, "InterfaceType"), "Ethernet");
}

TEST_F(Liveness, WirelessHostLeavesOnTheDriversMessageAndIsNeverProbed) {
    const std::string mac = "02:00:00:00:20:01";
    start();
    add_host("phone", "ra0.0", mac, "192.168.1.20");
    talk("phone");
    ASSERT_TRUE(eventually([&] { return published(mac); }, 15s)) << log();
    EXPECT_EQ(param(mac, "InterfaceType"), "802.11");
    answer_arp("phone", false);
    ASSERT_TRUE(eventually([&] { return count(log(), "mac=" + mac + " from wlan interface ra0.0 not send ARP") > 0; },
                           15s))
        << log();
    EXPECT_EQ(param(mac, "Active"), "1");
    EXPECT_EQ(count(log(), "send arpping to mac=" + mac), 0u);

    ASSERT_EQ(sh("znkernel wlan-leave " + mac).status, 0);
    EXPECT_TRUE(eventually([&] { return param(mac, "Active") == "0"; })) << log();
    EXPECT_FALSE(object_of(mac, "OfflineHost").empty());
}

TEST_F(Liveness, AgedOutBridgeEntryDeletesTheRecordAndKeepsTheHostObject) {
    const std::string mac = "02:00:00:00:10:05";
    ASSERT_EQ(sh("ip link set br0 type bridge ageing_time 1200").status, 0);
    start();
    add_host("gone", "eth5", mac, "192.168.1.13");
    talk("gone");
    ASSERT_TRUE(eventually([&] { return published(mac); }, 15s)) << log();
    answer_arp("gone", false);
    EXPECT_TRUE(eventually([&] { return count(log(), "set offline and delet lhost macAddr=" + mac) > 0; }, 30s))
        << log();
    EXPECT_EQ(param(mac, "MACAddress"), mac) << "the Host object stays";
    EXPECT_EQ(param(mac, "Active"), "0");
}

TEST_F(Liveness, GatewaysOwnMacAndForeignPortsAreIgnored) {
    start("02:00:00:00:30:01");
    add_host("own", "eth6", "02:00:00:00:30:01", "192.168.1.30");
    add_host("dialup", "ppp1", "02:00:00:00:30:02", "192.168.1.31");
    add_host("nas", "nas0", "02:00:00:00:30:03", "192.168.1.32");
    add_host("lan", "lan2", "02:00:00:00:30:04", "192.168.1.33");
    for (const char *h : {"own", "dialup", "nas", "lan"})
        talk(h);
    ASSERT_TRUE(eventually([] { return published("02:00:00:00:30:04"); }, 15s)) << log();
    EXPECT_EQ(param("02:00:00:00:30:04", "Layer2Interface"), std::string(kEthernetPath) + "3");
    for (const char *mac : {"02:00:00:00:30:01", "02:00:00:00:30:02", "02:00:00:00:30:03"})
        EXPECT_TRUE(object_of(mac).empty()) << mac;
    EXPECT_TRUE(eventually([&] { return count(log(), "MAC:02:00:00:00:30:02 ip=192.168.1.31 not in lhost list") > 0; }))
        << log();
}

TEST_F(Liveness, HostOnABridgedWanPortIsProbedOnEachReportAndTakesAddressesFromReplies) {
    const std::string mac = "02:00:00:00:40:01", other = "02:00:00:00:40:02";
    ASSERT_EQ(sh(std::string("znsUtil -s ") + kWan + " ConnectionType string IP_Bridged && znsUtil -s " + kWan +
                 " X_ZN_LanInterface string " + kEthernetPath + "8," + kEthernetPath + "10")
                  .status,
              0);
    start();
    add_host("bridged", "eth7", mac, "192.168.1.40");
    add_host("routed", "eth8", other, "192.168.1.41");
    talk("bridged");
    talk("routed");
    ASSERT_TRUE(eventually([&] { return published(mac) && published(other); }, 15s)) << log();

    // Each move between the two bridged ports is a report, and each report a probe.
    ASSERT_EQ(sh("ip link add eth9 type veth peer name br1 netns vgw-bridged && ip link set eth9 master br0 up && "
                 "ip -n vgw-bridged link set br1 address " + mac + " up")
                  .status,
              0);
    const std::string report = "Bridge, macAddr=" + mac, probe = "send arpping to mac=" + mac,
                      answer = "arpping detect mac=" + mac + " still online";
    for (const char *via : {"br1", "eth0", "br1"}) {
        const std::string before = log();
        sh(std::string("vgw host exec bridged arping -D -c 1 -w 1 -I ") + via + " 192.168.1.1");
        EXPECT_TRUE(eventually([&] {
            const std::string now = log();
            return count(now, report) > count(before, report) && count(now, probe) > count(before, probe) &&
                   count(now, answer) > count(before, answer);
        })) << via << "\n" << log();
    }
    EXPECT_EQ(param(mac, "Layer2Interface"), std::string(kEthernetPath) + "10");

    // A reply that names another address, sent to the gateway by each host
    // from the link where the bridge has it already.
    auto reply_from = [](const std::string &host, const std::string &link, const std::string &hexMac) {
        const std::string frame = "020000000001" + hexMac + "08060001080006040002" + hexMac + "0a090909" +
                                  "020000000001c0a80101";
        return sh("vgw host exec " + host +
                  " python3 -c \"import socket; s = socket.socket(socket.AF_PACKET, socket.SOCK_RAW); "
                  "s.bind(('" + link + "', 0)); s.send(bytes.fromhex('" + frame + "'))\"")
            .status;
    };
    ASSERT_EQ(reply_from("bridged", "br1", "020000004001"), 0);
    ASSERT_EQ(reply_from("routed", "eth0", "020000004002"), 0);
    EXPECT_TRUE(eventually([&] { return param(mac, "IPAddress") == "10.9.9.9"; })) << log();
    EXPECT_EQ(param(other, "IPAddress"), "192.168.1.41") << "an unbridged port keeps its address";
    EXPECT_GT(count(log(), "arpIp=10.9.9.9 lhostIp=192.168.1.41 change, mac=" + other), 0u);
}
