// The unchanged agent in a virtual gateway, fed by the user-agent module.
#include <gtest/gtest.h>

#include <regex>
#include <string>

#include "agent_process.h"
#include "shell.h"

using zntest::eventually;
using zntest::file_text;
using zntest::sh;

namespace {

constexpr const char *kMonitorOut = "/tmp/monitor.out";

bool has(const std::string &text, const std::string &part) { return text.find(part) != std::string::npos; }

} // namespace

class UserAgentAgent : public testing::Test {
protected:
    static void SetUpTestSuite() {
        ASSERT_EQ(sh("[ -e /sys/class/net/br0 ] || vgw lan up").status, 0);
        monitor = zntest::start_process(ZN_BUILD_DIR "/bin/znsMonitor", kMonitorOut);
        ASSERT_TRUE(eventually([] { return sh("ls /run/zns_bus | grep -q '^sub'").status == 0; }));
        agent = zntest::start_agent();
        ASSERT_TRUE(eventually([] { return has(sh("znkernel log").out, "user space lanhost http thread"); }));
    }
    static void TearDownTestSuite() {
        zntest::stop_process(agent);
        zntest::stop_process(monitor);
    }
    static pid_t monitor, agent;
};
pid_t UserAgentAgent::monitor, UserAgentAgent::agent;

TEST_F(UserAgentAgent, DeviceTypesOfThreeHostsGoOutOnTheBus) {
    const struct {
        const char *mac, *text, *event;
    } cases[] = {
        {"02:AA:00:00:20:01", "User-Agent: Mozilla/5.0 (iPhone; CPU iPhone OS 17_0 like Mac OS X)",
         "1601 0x20 02:aa:00:00:20:01 1 useragent\n"},
        {"02:AA:00:00:20:02", "User-Agent: Mozilla/5.0 (iPad; CPU OS 17_0 like Mac OS X)",
         "1601 0x20 02:aa:00:00:20:02 2 useragent\n"},
        {"02:AA:00:00:20:03", "User-Agent: Mozilla/5.0 (Windows NT 10.0; Win64; x64)",
         "1601 0x20 02:aa:00:00:20:03 3 useragent\n"},
    };
    for (const auto &c : cases) {
        ASSERT_EQ(sh(std::string("znkernel ua report ") + c.mac + " '" + c.text + "'").status, 0);
        EXPECT_TRUE(eventually([&] { return has(file_text(kMonitorOut), c.event); })) << file_text(kMonitorOut);
    }
}

TEST_F(UserAgentAgent, Gb2312NameOfADhcpOptionReportReachesTheStoreInUtf8) {
    // Reported before the host's first IPv4 synchronisation, which takes the
    // name and, as the requested address is the host's, the source DHCP.
    ASSERT_EQ(sh("znkernel ua report 02:00:00:00:30:01 "
                 "'bridge_dhcp_option,requestip=192.168.1.50,hostname=\xd6\xd0\xce\xc4,alt=x'")
                  .status,
              0);
    ASSERT_EQ(sh("vgw host add uapc eth1 02:00:00:00:30:01 192.168.1.50/24").status, 0);
    ASSERT_EQ(sh("vgw host exec uapc ping -c 1 -W 2 192.168.1.1").status, 0);
    const std::regex mac(R"(Host\.(\d+)\.MACAddress=02:00:00:00:30:01\n)");
    std::string hosts;
    EXPECT_TRUE(eventually([&] {
        hosts = sh("znsUtil -l InternetGatewayDevice.LANDevice.1.Hosts").out;
        std::smatch m;
        return std::regex_search(hosts, m, mac) &&
               has(hosts, "Host." + m[1].str() + ".HostName=\xe4\xb8\xad\xe6\x96\x87\n") &&
               has(hosts, "Host." + m[1].str() + ".AddressSource=DHCP\n");
    })) << hosts;
    sh("vgw host del uapc");
}
