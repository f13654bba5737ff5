// The unchanged agent in a virtual gateway, sent due tasks as its
// scheduler sends them.
#include <gtest/gtest.h>

#include <string>

#include "shell.h"

using zntest::eventually;
using zntest::file_text;
using zntest::sh;

TEST(Timer, EachDueTaskReachesItsHandlerEventOrLogLine) {
    const char *log = "/tmp/agent.out", *bus = "/tmp/monitor.out", *journal = "/var/log/zn_platform.journal";
    const std::string sleep = "InternetGatewayDevice.X_ZN_GatewaySleep.SleepTimer";
    ASSERT_EQ(sh("vgw lan up && znsUtil -a " + sleep + ".2 && znsUtil -s " + sleep + ".2 Enable bool 1 && "
                 "zncli board set timedTask.failIndex 6 && zncli board set deviceLimit.failIndex 8").status, 0);
    pid_t monitor = zntest::start_process(ZN_BUILD_DIR "/bin/znsMonitor", bus);
    pid_t agent = zntest::start_agent(log);
    ASSERT_TRUE(eventually([] { return sh("grep -q zn_event_agent_timer /proc/net/unix && ls /run/zns_bus | grep -q ^sub").status == 0; }));
    // Each row: the text the scheduler sends, and what must follow it where.
    const struct { std::string text; const char *where, *expect; } rows[] = {
        {sleep + ".2", journal, " sleepMode 1\n"},
        {"InternetGatewayDevice.CMCC_TimedTask.7 " + sleep + ".1", journal, " sleepMode 0\n"},
        {sleep, log, "get InternetGatewayDevice.X_ZN_GatewaySleep.SleepTimer.0 null\n"},
        {"InternetGatewayDevice.CMCC_TimedTask.3", journal, " timedTask 3\n"},
        {"InternetGatewayDevice.CMCC_TimedTask.6", log, "cmccTimedTaskHandler InternetGatewayDevice.CMCC_TimedTask.6 fail.\n"},
        {"InternetGatewayDevice.CMCC_DeviceLimit.4\n", journal, " deviceLimit 4\n"},
        {"InternetGatewayDevice.CMCC_DeviceLimit.8", log, "cmccDeviceLimitHandler InternetGatewayDevice.CMCC_DeviceLimit.8 fail.\n"},
        {"InternetGatewayDevice.X_ZN_UpgradeTask.Download", bus, "1450 0x1 -\n"},
        {"InternetGatewayDevice.X_ZN_UpgradeTask.Upgrade.1", bus, "1451 0x1 -\n"},
        {"InternetGatewayDevice.X_ZN_UpgradeTask", log, "unrecognize buffer\n"},
        {"", log, "read buf is empty\n"},
    };
    for (const auto &row : rows) {
        const size_t before = file_text(row.where).size();
        ASSERT_EQ(sh("zncli timer fire '" + row.text + "'").status, 0) << row.text;
        EXPECT_TRUE(eventually([&] { return file_text(row.where).find(row.expect, before) != std::string::npos; }))
            << row.text << "\n" << file_text(row.where);
    }
    zntest::stop_process(agent);
    zntest::stop_process(monitor);
}
