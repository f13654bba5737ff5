// The unchanged agent in a virtual gateway: start-up, sockets, flushes,
// the debug file and the save-to-flash timer.
#include <sys/stat.h>

#include <regex>

#include "shell.h"

using namespace std::chrono_literals;
using namespace zntest;

namespace {

constexpr const char *kSaved = "/userconfig/config/zns_store.conf";
constexpr const char *kGoneMac = "02:00:00:00:99:99";

bool has(const std::string &text, const std::string &part) { return text.find(part) != std::string::npos; }

// The agent's three sockets' paths, its UDP port, packet sockets and netlink ports.
bool sockets_bound(pid_t pid) {
    std::string unix_socks = file_text("/proc/net/unix");
    std::string nl = sh("awk '$2 == 0 && $4 == \"00000004\" {print $3}' /proc/net/netlink").out;
    return has(unix_socks, "/tmp/leasetime_unix") && has(unix_socks, "/tmp/dhcp6sAddress_unix") &&
           has(unix_socks, "/tmp/radvdprefix_unix") && has(file_text("/proc/net/udp"), ":0043 ") &&
           sh("tail -n +2 /proc/net/packet | wc -l").out == "2\n" && has(nl, std::to_string(pid | 0x640000));
}

// Waits for two runs of the MAC filter poll, each of which writes a line to
// the filter's table: the save and debug-file timers, of the same period and
// started after the poll, have run once in between.
void wait_timer_round() {
    auto lines = [] { return std::stoi(sh("znkernel macfilter table-show | wc -l").out); };
    const int before = lines();
    ASSERT_TRUE(eventually([&] { return lines() >= before + 2; }, 15s)) << "the MAC filter poll stopped";
}

} // namespace

class Agent : public testing::Test {
protected:
    static void SetUpTestSuite() {
        ASSERT_TRUE(run("vgw lan up && vgw host add pc eth1 02:00:00:00:10:01 192.168.1.10/24 && "
                        "echo 02:00:00:00:00:01 > /etc/macAddrBase && znkernel macfilter stat 02:00:00:00:99:01 1"));
    }
};

TEST_F(Agent, StartsBindsEverySocketGreetsAndFlushesTheBridge) {
    // What the kernel knew before the start, of a station that has gone
    // quiet for good, and a stale socket file.
    ASSERT_TRUE(run("bridge fdb add 02:00:00:00:99:99 dev eth1 master dynamic && touch /tmp/leasetime_unix && "
                    "ip neigh add 192.168.1.99 lladdr 02:00:00:00:99:99 dev br0 nud stale"));
    ASSERT_TRUE(has(sh("bridge fdb show br br0").out, kGoneMac));

    pid_t pid = start_agent();
    EXPECT_TRUE(eventually([&] { return sockets_bound(pid); })) << file_text("/proc/net/unix");
    // Six workers beside the main thread, all at work.
    const std::string tasks = "ls /proc/" + std::to_string(pid) + "/task | wc -l";
    EXPECT_TRUE(eventually([&] { return sh(tasks).out == "7\n"; })) << sh(tasks).out;
    EXPECT_TRUE(eventually([] { return has(sh("znkernel log").out, "user space lanhost http thread"); }))
        << sh("znkernel log").out;
    EXPECT_TRUE(has(sh("vgw stubs").out,
                    "insmod /lib/modules/" + sh("uname -r | tr -d '\\n'").out + "/extra/http_UserAgent_check.ko"))
        << sh("vgw stubs").out;
    EXPECT_FALSE(has(sh("bridge fdb show br br0; ip neigh show dev br0").out, kGoneMac));
    EXPECT_EQ(waitpid(pid, nullptr, WNOHANG), 0) << "the agent keeps running";
    stop_process(pid);
}

TEST_F(Agent, SavesToFlashOnlyWhenTheHostsChanged) {
    unlink(kSaved);
    pid_t pid = start_agent();
    wait_timer_round();
    EXPECT_NE(access(kSaved, F_OK), 0) << "a store that hasn't changed is not saved";

    ASSERT_TRUE(run("znsUtil -a InternetGatewayDevice.LANDevice.1.Hosts.Host.1"));
    ASSERT_TRUE(eventually([] { return access(kSaved, F_OK) == 0; }, 15s));
    EXPECT_TRUE(has(file_text(kSaved), "Hosts.Host.1."));
    struct stat first {};
    stat(kSaved, &first);
    ASSERT_TRUE(run("znsUtil -s InternetGatewayDevice.X_ZN_WiFi X_ZN_Enable bool 0"));
    wait_timer_round();
    struct stat later {};
    stat(kSaved, &later);
    EXPECT_EQ(first.st_ino, later.st_ino) << "saved again without a change under Hosts";
    stop_process(pid);
}

TEST_F(Agent, DebugFileTurnsTrackerLinesOnAndOff) {
    pid_t pid = start_agent();
    ASSERT_EQ(access("/tmp/zn_event_agent_lanhost_debug", F_OK), 0);
    // Without the Hosts object the save timer reports a failure at each run.
    ASSERT_TRUE(run("znsUtil -d InternetGatewayDevice.LANDevice.1"));
    wait_timer_round();
    EXPECT_FALSE(has(file_text(kAgentOut), "[zn_even_agent]")) << "the tracker is silent until asked";

    ASSERT_TRUE(run("echo 3 > /tmp/zn_event_agent_lanhost_debug"));
    const std::regex line(
        R"(\[\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\]\[zn_even_agent\]zn_event_lanhost_save_flash_timer_cb#\d+ couldn't get object by InternetGatewayDevice\.LANDevice\.1\.Hosts!!!\n)");
    EXPECT_TRUE(eventually([&] { return std::regex_search(file_text(kAgentOut), line); }, 15s)) << file_text(kAgentOut);

    ASSERT_TRUE(run("echo 0 > /tmp/zn_event_agent_lanhost_debug"));
    wait_timer_round();
    const std::string quiet = file_text(kAgentOut);
    wait_timer_round();
    EXPECT_EQ(file_text(kAgentOut), quiet) << "0 silences the tracker again";
    stop_process(pid);
    ASSERT_TRUE(run("zncli sys restoredefault"));
}

TEST_F(Agent, WithoutTheBridgeTheTrackerEndsAndNothingElseBreaks) {
    ASSERT_TRUE(run("ip link del br0"));
    pid_t pid = start_agent();
    EXPECT_TRUE(eventually([] { return access("/tmp/leasetime_unix", F_OK) == 0; })) << "bound before the failure";
    // The timer worker still carries out a due task.
    EXPECT_TRUE(eventually([] { return sh("zncli timer fire InternetGatewayDevice.CMCC_TimedTask.5").status == 0; }));
    EXPECT_TRUE(eventually([] { return has(file_text("/var/log/zn_platform.journal"), " timedTask 5\n"); }));
    EXPECT_EQ(waitpid(pid, nullptr, WNOHANG), 0) << "the agent keeps running";
    stop_process(pid);
    ASSERT_TRUE(run("vgw lan up"));
}
