// The unchanged agent in a virtual gateway whose surroundings fail: a full
// /tmp, a full Host table, bus subscribers that don't read, no syslogd.
#include <sys/wait.h>

#include <string>

#include "shell.h"

using namespace zntest;

// One fault a row: what it must leave (a shell condition that must come
// true), then a valid message that must be served. Outputs live in /var, as
// /tmp is filled.
TEST(Faults, AroundTheAgentLoseNoLineAndBlockNoWorker) {
    ASSERT_TRUE(run("vgw lan up && vgw host add pc eth1 02:00:00:00:10:01 192.168.1.10/24 && ip netns add far && "
                    "echo 3 > /tmp/zn_event_agent_lanhost_debug"));
    pid_t monitor = start_process(ZN_BUILD_DIR "/bin/znsMonitor", "/var/bus.out");
    ASSERT_TRUE(eventually([] { return sh("ls /run/zns_bus | grep -q '^sub'").status == 0; }));
    // Once the tracker's log level is raised and the USB socket is there.
    pid_t agent = start_agent("/var/agent.out");
    ASSERT_TRUE(eventually(
        [] { return run("grep -q 'macAgeingDetect timer' /var/agent.out && grep -q _usb /proc/net/unix"); }));
    const std::string list = " /tmp/usbDevListMore", hosts = " InternetGatewayDevice.LANDevice.1.Hosts",
                      host = hosts + ".Host.", mon = std::to_string(monitor);
    // A host that leases, is seen on eth1 and comes alive.
    const std::string lease = "printf '1 02:00:00:00:88:01 192.168.1.91 h *\\n' > /etc/dnsmasq.leases && bridge fdb "
                              "replace 02:00:00:00:88:01 dev eth1 master dynamic && ip neigh replace 192.168.1.91 "
                              "lladdr 02:00:00:00:88:01 dev br0 nud reachable";
    const auto port_up = [](const std::string &p) {
        return "ip link add " + p + " type veth peer " + p + " netns far && ip link set " + p + " up && ip -n far link "
               "set " + p + " up";
    };
    const struct {
        std::string fault, left, valid, served;
    } rows[] = {
        // /tmp full to the last block with two sticks listed: no room for a new list, the old one shrinks.
        {"vgw usb plug sda1 && vgw usb plug sdb1 && timeout 10 sh -c 'until [ \"$(grep -c sd" + list + ")\" = 2 ]; do "
         "sleep 0.1; done' && mount -o remount,size=$(($(df -k --output=used /tmp | tail -1) + 64))k /tmp && "
         "{ dd if=/dev/zero of=/tmp/fill bs=4k 2>/dev/null || true; } && vgw usb unplug sda1",
         "grep -q 'write /tmp/usbDevListMore fail' /var/agent.out && grep -q '^2, /dev/sdb1, .*, 0$'" + list +
             " && ! grep -q sda1" + list + " && grep -q '^1301 .*sda1' /var/bus.out",
         "vgw usb plug sdc1", "grep -q 'usb storage mount fail' /var/agent.out"},
        // ... and a third stick whose mount point can't be learnt: no line, no event 1300.
        {"true", "! grep -q sdc" + list + " && ! grep -q '^1300 .*sdc' /var/bus.out",
         "rm /tmp/fill && vgw usb plug ttyUSB0",
         "grep -q ttyUSB0" + list + " && grep -q '^1300 .*ttyUSB0' /var/bus.out"},
        // 255 Host objects: the 256th host stays in memory, the others and the count unchanged.
        {"for i in $(seq 255); do znsUtil -a" + host + "$i && znsUtil -s" + host + "$i MACAddress mac "
         "02:00:00:01:00:$(printf %02x $i); done >/dev/null 2>&1; znsUtil -g" + hosts +
         " HostNumberOfEntries > /var/n && " + lease,
         "grep -q 'not find zns host addIdx' /var/agent.out && [ \"$(znsUtil -g" + hosts + " HostNumberOfEntries)\" = "
         "\"$(cat /var/n)\" ] && [ $(znsUtil -l" + hosts + " | grep -c 'Host\\.[0-9]*\\.MACAddress=') = 255 ]",
         "znsUtil -d" + host + "255 && ip neigh del 192.168.1.91 dev br0 && " + lease,
         "znsUtil -l" + hosts + " | grep -q 'Host.255.MACAddress=02:00:00:00:88:01'"},
        // A subscriber that stops reading (its socket full), then none at all: link events go on.
        {"kill -STOP " + mon + " && for i in $(seq 20); do ip link set eth1 down && ip link set eth1 up; done", "true",
         port_up("eth2"), "grep -q 'LAN eth2 Link Up' /var/log/messages"},
        {"kill -KILL " + mon, "true", port_up("eth3"), "grep -q 'LAN eth3 Link Up' /var/log/messages"},
        // No syslogd on /dev/log: link and PON events still reach the bus.
        {"kill $(pgrep -f 'busybox [s]yslogd'); znsMonitor > /var/bus2.out 2>&1 &",
         "grep -q \"sub.$(pgrep -n znsMonitor)\\.\" /proc/net/unix",
         "znkernel pon recovered 0 && " + port_up("eth4") + " && znkernel pon wan-change 7",
         "grep -q '^100 0xc0000000 ETHER=eth4$' /var/bus2.out && grep -q '^199 0xc0000000 EPON$' /var/bus2.out"},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.fault.substr(0, 160));
        sh(r.fault);
        EXPECT_TRUE(eventually([&] { return sh(r.left).status == 0; })) << r.left << file_text("/var/agent.out");
        sh(r.valid);
        EXPECT_TRUE(eventually([&] { return sh(r.served).status == 0; })) << r.served;
        ASSERT_EQ(waitpid(agent, nullptr, WNOHANG), 0) << file_text("/var/agent.out");
    }
    sh("vgw usb clear");
    stop_process(agent);
}
