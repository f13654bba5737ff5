// The virtual gateway as system tests see it: a LAN behind br0, hosts on
// wired and wireless ports, and stubs in place of dangerous commands. All
// tests share one gateway, so each uses hosts of its own.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "libzn.h"
#include "shell.h"

using zntest::file_text;
using zntest::sh;

namespace {

void add_host(const std::string &name, const std::string &port, const std::string &mac, const std::string &addr) {
    ASSERT_EQ(sh("[ -e /sys/class/net/br0 ] || vgw lan up").status, 0);
    auto r = sh("vgw host add " + name + " " + port + " " + mac + " " + addr);
    ASSERT_EQ(r.status, 0) << r.out;
}

bool ping(const std::string &host, const std::string &to) {
    return sh("vgw host exec " + host + " ping -c 1 -W 2 " + to).status == 0;
}

} // namespace

TEST(Sandbox, BridgeTableShowsAHostThatSpoke) {
    add_host("tv", "lan2", "02:00:00:00:10:03", "192.168.1.30/24");
    ASSERT_TRUE(ping("tv", "192.168.1.1"));

    brctl_fdb_entry_t rec[128];
    int n = brctl_getmacs("br0", rec, 128);
    ASSERT_GT(n, 0);
    const uint8_t mac[6] = {0x02, 0, 0, 0, 0x10, 0x03};
    const brctl_fdb_entry_t *tv = nullptr;
    for (int i = 0; i < n; i++)
        if (memcmp(rec[i].mac_addr, mac, 6) == 0)
            tv = &rec[i];
    ASSERT_NE(tv, nullptr);
    EXPECT_EQ(tv->is_local, 0);
    EXPECT_EQ(tv->port_no, strtol(file_text("/sys/class/net/lan2/brport/port_no").c_str(), nullptr, 16));
    EXPECT_LT(tv->ageing_timer_value, 300u) << "hundredths of a second since its ping";
}

TEST(Sandbox, WirelessAndWiredHostsReachTheGatewayAndEachOther) {
    // A name longer than an interface name may be: the host's end is eth0 anyway.
    add_host("phone-in-the-kitchen", "ra0.0", "02:00:00:00:10:02", "192.168.1.20/24");
    add_host("pc", "eth1", "02:00:00:00:10:01", "192.168.1.10/24");
    EXPECT_TRUE(ping("phone-in-the-kitchen", "192.168.1.1"));
    EXPECT_TRUE(ping("pc", "192.168.1.1"));
    EXPECT_TRUE(ping("phone-in-the-kitchen", "192.168.1.10"));
    EXPECT_TRUE(ping("pc", "192.168.1.20"));
    // Link-local addresses work at once: no duplicate address detection to wait for.
    EXPECT_TRUE(ping("phone-in-the-kitchen", "-6 fe80::1%eth0"));

    // Deleting a host takes its port away; port names are at most 15 characters.
    ASSERT_EQ(sh("vgw host del pc").status, 0);
    EXPECT_NE(sh("ip link show eth1").status, 0);
    EXPECT_EQ(sh("vgw host add x a-too-long-port0 02:00:00:00:10:09").status, 2);
}

TEST(Sandbox, RebootStubRecordsAndTheMachineStaysUp) {
    EXPECT_EQ(sh("reboot -f now").status, 0);
    EXPECT_EQ(sh("/sbin/reboot").status, 0);
    EXPECT_EQ(sh("insmod /lib/modules/http_UserAgent_check.ko").status, 0);
    EXPECT_EQ(sh("vgw stubs").out, "reboot -f now\nreboot\ninsmod /lib/modules/http_UserAgent_check.ko\n");
    EXPECT_EQ(file_text("/proc/1/comm"), "bash\n") << "the sandbox's PID 1 is still there";
}
