// The unchanged agent in a virtual gateway: start-up, sockets, flushes,
// the debug file and the save-to-flash timer.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <regex>
#include <string>

#include "agent_process.h"
#include "shell.h"

using namespace std::chrono_literals;
using zntest::eventually;
using zntest::file_text;
using zntest::sh;

namespace {

constexpr const char *kAgentOut = "/tmp/agent.out";
constexpr const char *kSaved = "/userconfig/config/zns_store.conf";
constexpr const char *kGoneMac = "02:00:00:00:99:99";

pid_t start_agent() { return zntest::start_agent(kAgentOut); }

void stop_agent(pid_t pid) { zntest::stop_process(pid); }

bool has(const std::string &text, const std::string &part) { return text.find(part) != std::string::npos; }

// The agent's three sockets' paths, its UDP port, packet sockets and netlink ports.
bool sockets_bound(pid_t pid) {
    std::string unix_socks = file_text("/proc/net/unix");
    std::string nl = sh("awk '$2 == 0 && $4 == \"00000004\" {print $3}' /proc/net/netlink").out;
    return has(unix_socks, "/tmp/leasetime_unix") && has(unix_socks, "/tmp/dhcp6sAddress_unix") &&
           has(unix_socks, "/tmp/radvdprefix_unix") && has(file_text("/proc/net/udp"), ":0043 ") &&
           sh("tail -n +2 /proc/net/packet | wc -l").out == "2\n" && has(nl, std::to_string(pid | 0x640000));
}

} // namespace

class Agent : public testing::Test {
protected:
    static void SetUpTestSuite() {
        ASSERT_EQ(sh("vgw lan up && vgw host add pc eth1 02:00:00:00:10:01 192.168.1.10/24").status, 0);
        ASSERT_EQ(sh("echo 02:00:00:00:00:01 > /etc/macAddrBase").status, 0);
    }
};

TEST_F(Agent, StartsBindsEverySocketGreetsAndFlushesTheBridge) {
    // What the kernel knew before the start, of a station that has gone
    // quiet for good, and a stale socket file.
    ASSERT_EQ(sh("bridge fdb add 02:00:00:00:99:99 dev eth1 master dynamic").status, 0);
    ASSERT_EQ(sh("ip neigh add 192.168.1.99 lladdr 02:00:00:00:99:99 dev br0 nud stale").status, 0);
    ASSERT_TRUE(has(sh("bridge fdb show br br0").out, kGoneMac));
    ASSERT_EQ(sh("touch /tmp/leasetime_unix").status, 0);

    pid_t pid = start_agent();
    EXPECT_TRUE(eventually([&] { return sockets_bound(pid); })) << file_text("/proc/net/unix");
    EXPECT_TRUE(eventually([] { return has(sh("znkernel log").out, "user space lanhost http thread"); }))
        << sh("znkernel log").out;
    EXPECT_TRUE(has(sh("vgw stubs").out, "insmod /lib/modules/" + sh("uname -r | tr -d '\\n'").out +
                                             "/extra/http_UserAgent_check.ko"))
        << sh("vgw stubs").out;
    EXPECT_TRUE(eventually([] {
        return !has(sh("bridge fdb show br br0").out, kGoneMac) && !has(sh("ip neigh show dev br0").out, "192.168.1.99");
    })) << sh("bridge fdb show br br0; ip neigh show dev br0").out;
    EXPECT_EQ(waitpid(pid, nullptr, WNOHANG), 0) << "the agent keeps running";
    stop_agent(pid);
}

TEST_F(Agent, SavesToFlashOnlyWhenTheHostsChanged) {
    unlink(kSaved);
    pid_t pid = start_agent();
    sleep(6);
    EXPECT_NE(access(kSaved, F_OK), 0) << "a store that hasn't changed is not saved";

    ASSERT_EQ(sh("znsUtil -a InternetGatewayDevice.LANDevice.1.Hosts.Host.1").status, 0);
    ASSERT_TRUE(eventually([] { return access(kSaved, F_OK) == 0; }, 6s));
    EXPECT_TRUE(has(file_text(kSaved), "Hosts.Host.1."));
    struct stat first {};
    stat(kSaved, &first);
    ASSERT_EQ(sh("znsUtil -s InternetGatewayDevice.X_ZN_WiFi X_ZN_Enable bool 0").status, 0);
    sleep(6);
    struct stat later {};
    stat(kSaved, &later);
    EXPECT_EQ(first.st_ino, later.st_ino) << "saved again without a change under Hosts";
    stop_agent(pid);
}

TEST_F(Agent, DebugFileTurnsTrackerLinesOnAndOff) {
    pid_t pid = start_agent();
    ASSERT_TRUE(eventually([] { return access("/tmp/zn_event_agent_lanhost_debug", F_OK) == 0; }));
    // Without the Hosts object the save timer reports a failure every 5 seconds.
    ASSERT_EQ(sh("znsUtil -d InternetGatewayDevice.LANDevice.1").status, 0);
    sleep(6);
    EXPECT_FALSE(has(file_text(kAgentOut), "[zn_even_agent]")) << "the tracker is silent until asked";

    ASSERT_EQ(sh("echo 3 > /tmp/zn_event_agent_lanhost_debug").status, 0);
    const std::regex line(R"(\[\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\]\[zn_even_agent\]zn_event_lanhost_save_flash_timer_cb#\d+ couldn't get object by InternetGatewayDevice\.LANDevice\.1\.Hosts!!!\n)");
    EXPECT_TRUE(eventually([&] { return std::regex_search(file_text(kAgentOut), line); }, 11s)) << file_text(kAgentOut);

    ASSERT_EQ(sh("echo 0 > /tmp/zn_event_agent_lanhost_debug").status, 0);
    sleep(6);
    const std::string quiet = file_text(kAgentOut);
    sleep(6);
    EXPECT_EQ(file_text(kAgentOut), quiet) << "0 silences the tracker again";
    stop_agent(pid);
    ASSERT_EQ(sh("zncli sys restoredefault").status, 0);
}

TEST_F(Agent, WithoutTheBridgeTheTrackerEndsAndNothingElseBreaks) {
    ASSERT_EQ(sh("ip link del br0").status, 0);
    pid_t pid = start_agent();
    EXPECT_TRUE(eventually([] { return access("/tmp/leasetime_unix", F_OK) == 0; })) << "bound before the failure";
    // The timer worker still carries out a due task.
    EXPECT_TRUE(eventually([] { return sh("zncli timer fire InternetGatewayDevice.CMCC_TimedTask.5").status == 0; }));
    EXPECT_TRUE(eventually([] { return has(file_text("/var/log/zn_platform.journal"), " timedTask 5\n"); }));
    EXPECT_EQ(waitpid(pid, nullptr, WNOHANG), 0) << "the agent keeps running";
    stop_agent(pid);
    ASSERT_EQ(sh("vgw lan up").status, 0);
}
