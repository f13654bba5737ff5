// The unchanged agent in a virtual gateway, fed by the user-agent module.

#include "shell.h"

using namespace zntest;

namespace {

constexpr const char *kMonitorOut = "/tmp/monitor.out";
pid_t monitor, agent;

} // namespace

class UserAgentAgent : public testing::Test {
protected:
    static void SetUpTestSuite() {
        ASSERT_TRUE(run("vgw lan up"));
        monitor = start_process(ZN_BUILD_DIR "/bin/znsMonitor", kMonitorOut);
        ASSERT_TRUE(eventually([] { return sh("ls /run/zns_bus | grep -q '^sub'").status == 0; }));
        ASSERT_GT(agent = start_agent(), 0);
        ASSERT_TRUE(eventually(
            [] { return sh("znkernel log").out.find("user space lanhost http thread") != std::string::npos; }));
    }
    static void TearDownTestSuite() {
        stop_process(agent);
        stop_process(monitor);
    }
};

TEST_F(UserAgentAgent, DeviceTypesOfThreeHostsGoOutOnTheBus) {
    const std::tuple<const char *, const char *, const char *> cases[] = {
        {"02:AA:00:00:20:01", "User-Agent: Mozilla/5.0 (iPhone; CPU iPhone OS 17_0 like Mac OS X)",
         "1601 0x20 02:aa:00:00:20:01 1 useragent\n"},
        {"02:AA:00:00:20:02", "User-Agent: Mozilla/5.0 (iPad; CPU OS 17_0 like Mac OS X)",
         "1601 0x20 02:aa:00:00:20:02 2 useragent\n"},
        {"02:AA:00:00:20:03", "User-Agent: Mozilla/5.0 (Windows NT 10.0; Win64; x64)",
         "1601 0x20 02:aa:00:00:20:03 3 useragent\n"},
    };
    for (const auto &[mac, text, event] : cases) {
        ASSERT_TRUE(run(std::string("znkernel ua report ") + mac + " '" + text + "'"));
        EXPECT_TRUE(eventually([&] { return file_text(kMonitorOut).find(event) != std::string::npos; }))
            << file_text(kMonitorOut);
    }
}

TEST_F(UserAgentAgent, Gb2312NameOfADhcpOptionReportReachesTheStoreInUtf8) {
    // Reported before the host's first IPv4 synchronisation, which takes the
    // name and, as the requested address is the host's, the source DHCP.
    ASSERT_TRUE(run("znkernel ua report 02:00:00:00:30:01 "
                    "'bridge_dhcp_option,requestip=192.168.1.50,hostname=\xd6\xd0\xce\xc4,alt=x'"));
    ASSERT_TRUE(run("vgw host add uapc eth1 02:00:00:00:30:01 192.168.1.50/24"));
    ASSERT_TRUE(run("vgw host exec uapc ping -c 1 -W 2 192.168.1.1"));
    Object host;
    EXPECT_TRUE(eventually([&] {
        host = host_object("02:00:00:00:30:01");
        return host["HostName"] == "\xe4\xb8\xad\xe6\x96\x87" && host["AddressSource"] == "DHCP";
    })) << host["HostName"]
        << " " << host["AddressSource"];
}
