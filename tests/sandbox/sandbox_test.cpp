// The virtual gateway where no agent test meets it: host names and port
// names of any length, deleted hosts, and stubs in place of dangerous commands.

#include "shell.h"

using namespace zntest;

TEST(Sandbox, HostsOfAnyNameReachEachOtherAndLeaveWithTheirPort) {
    ASSERT_TRUE(run("vgw lan up"));
    // A name longer than an interface name may be: the host's end is eth0 anyway.
    ASSERT_TRUE(run("vgw host add phone-in-the-kitchen ra0.0 02:00:00:00:10:02 192.168.1.20/24"));
    ASSERT_TRUE(run("vgw host add pc eth1 02:00:00:00:10:01 192.168.1.10/24"));
    EXPECT_TRUE(run("vgw host exec phone-in-the-kitchen ping -c 1 -W 2 192.168.1.10"));
    EXPECT_TRUE(run("vgw host exec pc ping -c 1 -W 2 192.168.1.20"));
    ASSERT_TRUE(run("vgw host del pc"));
    EXPECT_NE(sh("ip link show eth1").status, 0);
    EXPECT_EQ(sh("vgw host add x a-too-long-port0 02:00:00:00:10:09").status, 2) << "port names have 15 characters";
}

TEST(Sandbox, RebootStubRecordsAndTheMachineStaysUp) {
    EXPECT_TRUE(run("reboot -f now"));
    EXPECT_TRUE(run("/sbin/reboot"));
    EXPECT_TRUE(run("rmmod http_UserAgent_check"));
    EXPECT_EQ(sh("vgw stubs").out, "reboot -f now\nreboot\nrmmod http_UserAgent_check\n");
    EXPECT_EQ(file_text("/proc/1/comm"), "bash\n") << "the sandbox's PID 1 is still there";
}
