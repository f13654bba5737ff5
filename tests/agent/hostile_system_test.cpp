// The unchanged agent in a virtual gateway, sent what an attacker or a broken
// peer sends on every way in; after each, one valid message must still have
// its effect, no command from outside may have run and the agent lives.
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "shell.h"

using namespace std::string_literals;
using namespace zntest;

namespace {

constexpr const char *kOut = "/tmp/agent.out", *kPwned = "/tmp/pwned";
const std::string kSend = "python3 " ZN_SOURCE_DIR "/tools/vgw/send.py ";

// Whether what cmd prints has text beyond what it printed before (all of it
// when it printed less: a file that started anew).
bool added(const std::string &cmd, const std::string &before, const std::string &text) {
    return eventually([&] {
        const std::string now = sh(cmd).out;
        return now.find(text, now.size() < before.size() ? 0 : before.size()) != std::string::npos;
    });
}

std::string hex(const std::string &bytes) {
    std::string out;
    for (unsigned char c : bytes)
        out += "0123456789abcdef"[c >> 4], out += "0123456789abcdef"[c & 15];
    return out;
}

// A way in: how a row's bytes are sent (hex, and for datagrams a count
// appended; else the row is text, or without a sender a command), then a
// valid message and the text its effect adds to what where prints.
struct Entry {
    std::string send;
    bool hex;
    std::string valid, effect, where = "cat /tmp/agent.out";
};
enum Way { kTimer, kUsb, kLease, kDhcp6s, kRadvd, kDhcp, kArp, kNa, kNeigh, kHttp, kLink, kPon, kKeys, kFilter, kSh };

} // namespace

TEST(Hostile, EveryWayInRefusesOrTakesBadInputAndServesTheNextMessage) {
    // A link message of interface 9, a neighbour message of 192.168.1.78, and
    // an ARP reply and a neighbour advertisement from pc to the gateway.
    const std::string link = "\x20\0\0\0\x10\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\x09\0\0\0\0\0\0\0\0\0\0\0"s;
    const std::string neigh = "\x30\0\0\0\x1c\0\0\0\0\0\0\0\0\0\0\0\2\0\0\0\0\0\0\0\2\0\0\0\x08\0\1\0\xc0\xa8\1\x4e"
                              "\x0a\0\2\0\2\0\0\0\x77\x07\0\0"s;
    const std::string arp = "\2\0\0\0\0\1\2\0\0\0\x10\1\x08\x06\0\1\x08\0\6\4\0\2\2\0\0\0\x10\1\xc0\xa8\1\x0a"
                            "\2\0\0\0\0\1\xc0\xa8\1\1"s;
    const std::string na = "\2\0\0\0\0\1\2\0\0\0\x10\1\x86\xdd\x60\0\0\0\0\x20\x3a\xff"s + std::string(16, '\x11') +
                           "\xfe\x80"s + std::string(13, '\0') + "\1\x88\0\0\0\x60\0\0\0"s + std::string(16, '\x11') +
                           "\2\1\2\0\0\0\x10\1"s;
    // Shell words and quotes, to stand in a text field (a row of a socket adds a single quote).
    const std::string shellText = "$(touch /tmp/pwned);touch /tmp/pwned;`touch /tmp/pwned`\"|&<>";
    // The base MAC file is a hostile one for the agent's whole life.
    ASSERT_TRUE(run("vgw lan up && vgw host add pc eth1 02:00:00:00:10:01 192.168.1.10/24 && ip netns add far && "
                    "echo 3 > /tmp/zn_event_agent_lanhost_debug && znkernel macfilter stat 02:00:00:00:77:05 0 && "
                    "printf '\\377\\0$(touch /tmp/pwned)\\n' > /etc/macAddrBase"));
    pid_t monitor = start_process(ZN_BUILD_DIR "/bin/znsMonitor", "/tmp/bus.out");
    ASSERT_TRUE(eventually([] { return sh("ls /run/zns_bus | grep -q '^sub'").status == 0; }));
    pid_t agent = start_agent(kOut);
    ASSERT_TRUE(eventually([] {
        return sh("grep -q 'macAgeingDetect timer call back' /tmp/agent.out && grep -q agent_timer /proc/net/unix && "
                  "grep -q agent_usb /proc/net/unix").status == 0;
    }));
    const std::string nlPort = sh("awk '$2 == 0 && $4 == \"00000551\" {printf $3}' /proc/net/netlink").out;
    const std::string dgram = kSend + "dgram unix /tmp/", unix = kSend + "unix /tmp/", pc = "vgw host exec pc " + kSend;
    const std::string bus = "cat /tmp/bus.out", journal = "cat /var/log/zn_platform.journal";
    const std::string ports = "wan0 eth0 eth3 eth4 lan0 lan1 lan2 lan3 lan4";
    const Entry entries[] = {
        {dgram + "zn_event_agent_timer", true, unix + "zn_event_agent_timer InternetGatewayDevice.CMCC_TimedTask.3",
         " timedTask 3\n", journal},
        {dgram + "zn_event_agent_usb", true, "vgw usb plug ttyUSB0 && vgw usb unplug ttyUSB0", "1301 0xc0000000 ", bus},
        {dgram + "leasetime_unix", true, unix + "leasetime_unix 02:00:00:00:77:01,86400,192.168.1.77,pc",
         "lhost=NULL mac=02:00:00:00:77:01"},
        {dgram + "dhcp6sAddress_unix", true, unix + "dhcp6sAddress_unix valid6", "receive dhcp6s buffer:valid6"},
        {dgram + "radvdprefix_unix", true, unix + "radvdprefix_unix 2001:db8:77::/64", "radvd buffer:2001:db8:77::/64"},
        {kSend + "dgram udp 127.0.0.1:67", true, pc + "dhcp eth0 3 02:00:00:00:77:02", "macAddr=02:00:00:00:77:02"},
        {pc + "frame eth0", true, pc + "frame eth0 " + hex(arp), "receive arp packet"},
        {pc + "frame eth0", true, pc + "frame eth0 " + hex(na), "receive mld na packet"},
        {kSend + "dgram netlink " + std::to_string(agent | 0x640000), true,
         "ip neigh replace 192.168.1.77 lladdr 02:00:00:00:77:03 dev br0 nud reachable && "
         "ip neigh del 192.168.1.77 dev br0", "ip=192.168.1.77 mac=02:00:00:00:77:03"},
        {"znkernel ua raw", true, "znkernel ua report 02:00:00:00:77:04 validUA", "data:validUA"},
        {kSend + "dgram netlink " + nlPort, true, "ip link add eth2 type veth peer eth2 netns far && ip link del eth2",
         " 0xc0000000 ETHER=eth2\n", bus},
        {"znkernel pon raw", true, "znkernel pon recovered 0", "sdk error, but recover now", "cat /var/log/messages"},
        {"znkernel button raw", false, "znkernel button led tap 0", "turnOffLed", journal},
        {"", false, "znkernel macfilter stat 02:00:00:00:77:05 1", "mac:02:00:00:00:77:05",
         "znkernel macfilter table-show"},
        {"", false, "true", ""},
    };
    // Each row: the way in, the bytes (or text, or command), how often, and
    // a text that must then show in what where prints (the agent's output).
    const struct {
        Way way;
        std::string bytes;
        int count;
        std::string shows = "", where = "cat /tmp/agent.out";
    } rows[] = {
        {kTimer, "", 1, "read buf is empty"},
        {kTimer, std::string(300, 'A') + "InternetGatewayDevice.CMCC_TimedTask.3", 1, "unrecognize buffer"},
        {kTimer, "InternetGatewayDevice.CMCC_TimedTask.4\0.3"s, 1},
        {kTimer, "InternetGatewayDevice.CMCC_TimedTask" + shellText + "'", 1},
        {kTimer, "InternetGatewayDevice.CMCC_TimedTask.99999999999999999999", 1},
        {kTimer, "InternetGatewayDevice.X_ZN_UpgradeTask.Download", 2000},
        {kUsb, "add,", 1},
        {kUsb, "add,ttyUSB0;touch /tmp/pwned", 1, "ttyUSB0;touch /tmp/pwned is not a plain device name"},
        {kUsb, "add," + std::string(300, 'a'), 1, "name too long"},
        {kSh, "vgw usb plug sdn1 && ln -s /dev/sdn1 /tmp/x && znhotplug remove,sdn1 && znhotplug add,../tmp/x", 1,
         "devName ../tmp/x is not a plain device name, refused"},
        {kUsb, "add\0,null"s, 1},
        {kUsb, "remove,nothing", 3000},
        {kSh, "vgw usb plug 'sdh1;reboot'", 1, "sdh1;reboot is not a plain device name"},
        {kSh, "vgw usb plug 'sdi$(reboot)' && vgw usb plug 'sdj`reboot`|reboot\"'", 1, "sdj`reboot`|reboot\" is not"},
        {kSh, "vgw usb plug ttyUSB1 && p=$(find /sys/devices/platform -path '*/tty/ttyUSB1')/../../../.. && "
                 "printf '" + shellText + "\\nx' > $p/product && printf 'zz\\0' > $p/idVendor && "
                 "znhotplug remove,ttyUSB1 && znhotplug add,ttyUSB1", 1, shellText + ", ", "cat /tmp/usbDevListMore"},
        {kSh, "vgw usb plug sdm1 --fs ext4 --label '$(reboot);`x`' && mkdir /mnt/m && mount /dev/sdm1 /mnt/m && "
              "znhotplug add,sdm1", 1, "ext4, $(reboot);`x`, 0", "cat /tmp/usbDevListMore"},
        {kSh, "vgw usb plug sdk1 && timeout 10 sh -c 'until umount $(mount | grep -o \"^/dev/sdk1 on [^ ]*\" | "
                 "cut -c 14-); do sleep 0.1; done' && mkdir -p '/mnt/k$(touch${IFS}/tmp/pwned)' && "
                 "mount /dev/sdk1 '/mnt/k$(touch${IFS}/tmp/pwned)' && znhotplug remove,sdk1 && znhotplug add,sdk1",
         1, "/mnt/k$(touch${IFS}/tmp/pwned)", "cat /tmp/usbDevListMore"},
        {kSh, "printf '1 02:00:00:00:77:0a 192.168.1.90 $(touch${IFS}/tmp/pwned)\"`x` * 5\\n' >/etc/dnsmasq.leases && "
                 "bridge fdb add 02:00:00:00:77:0a dev eth1 master dynamic && "
                 "ip neigh replace 192.168.1.90 lladdr 02:00:00:00:77:0a dev br0 nud reachable",
         1, "HostName=$(touch${IFS}/tmp/pwned)\"`x`\n", "znsUtil -l InternetGatewayDevice | grep HostName=..touch"},
        {kLease, "", 1},
        {kLease, std::string(300, ','), 1},
        {kLease, "02:00:00:00:10:01,86400,192.168.1.10,pc'" + shellText, 1},
        {kLease, "02:00:00:00:10:01,86400,192.168.1.10;touch /tmp/pwned,pc", 1},
        {kLease, "02:00:00:00:10:01\0,1,192.168.1.10"s, 500},
        // The viewer's JSON of a name of broken UTF-8 reads in a strict reader; what it prints is kept.
        {kLease, "02:00:00:00:10:01,86400,192.168.1.10,\xff\xc3x\x01\xe2\x82\xac", 1, R"("\ufffd\ufffdx\u0001\u20ac")",
         "znhosts --json | python3 -c 'import json,sys; print(json.dumps(json.loads(sys.stdin.buffer.read().decode()"
         ")[\"hosts\"]))' >> /tmp/json.out; cat /tmp/json.out"},
        {kDhcp6s, std::string(300, 'f'), 1, "dhcp6s report field too long"},
        {kDhcp6s, "\xff\0\xfe'"s + shellText, 1},
        {kRadvd, std::string(300, '1'), 1, "radvd report too long for an address"},
        {kRadvd, "", 1},
        {kDhcp, "\1\1\6\0"s, 1},
        {kDhcp, "\1\1\6\0"s + std::string(236, '\0') + "\x63\x82\x53\x63\x35\x01\x03\x3d\xff\x01"s, 1},
        {kDhcp, "\1\1\6\0"s + std::string(236, '\0') + "\x63\x82\x53\x63\x3d\x07\x01\2\0\0\0\x77\x09\x0c\x05" "ab"s, 1},
        {kDhcp, std::string(2000, '\xff'), 200},
        {kArp, arp.substr(0, 20), 1},
        {kArp, arp.substr(0, 14) + std::string(100, '\xff'), 50},
        {kNa, na.substr(0, 60), 1},
        {kNa, na.substr(0, 78) + "\2\xff"s, 1},
        {kNeigh, "", 1},
        {kNeigh, neigh.substr(0, 16), 1},
        {kNeigh, "\xff\xff\0\0"s + neigh.substr(4), 1},
        {kNeigh, neigh.substr(0, 28) + "\xff\0\x01\0"s + neigh.substr(32), 1},
        {kNeigh, "\x0f\0\0\0"s + neigh.substr(4), 1},
        {kNeigh, neigh + std::string(4000, '\0'), 1},
        {kNeigh, "\x14\0\0\0\xc8\0\0\0\0\0\0\0\0\0\0\0"s + std::string(4, '\xff'), 1},
        {kNeigh, neigh, 3000},
        {kHttp, "\x10\0\0\0\3\0\0\0\0\0\0\0\0\0\0\0"s, 1},
        {kHttp, "\x40\0\0\0\3\0\0\0\0\0\0\0\0\0\0\0\2\0\0\0\x77\x04"s + std::string(42, 'U'), 1},
        {kHttp, "\xff\xff\0\0\3\0\0\0\0\0\0\0\0\0\0\0\2\0\0\0\x77\x04"s + shellText, 1},
        {kLink, "", 1},
        {kLink, link.substr(0, 12), 1},
        {kLink, "\x28"s + link.substr(1) + "\xff\0\3\0eth7"s, 1},
        {kLink, "\xff\xff\0\0"s + link.substr(4), 1},
        {kLink, "\x20\0\0\0\x63"s + link.substr(5), 1, "kernelEventHandler(): nh->nlmsg_type = 99"},
        {kLink, "\x30"s + link.substr(1) + "\x10\0\3\0eth7;touch /tm"s, 1},
        {kSh, "printf 'ETHER=eth7;touch /tmp/pwned" + std::string(80, 'x') + "' > /var/wanPhysicalType", 1},
        {kSh, "printf '\\0=\\377==\\n' > /var/wanPhysicalType", 1},
        // With IPv6, a WAN port's first carrier-up, and eight LAN ports' together, each have their up event.
        {kSh, "echo ETHER=wan0 > /var/wanPhysicalType && for p in " + ports + "; do ip link add $p type veth peer $p "
              "netns far && ip link set $p up; done && printf 'link set %s up\\n' " + ports + " | ip -n far -batch - "
              "&& up() { for p in " + ports + "; do grep -qE \"^[12]00 0xc0000000 ETHER=$p$\" /tmp/bus.out || return "
              "1; done; }; for i in $(seq 100); do up && break; sleep 0.1; done; up && echo up > /tmp/links; "
              "for p in " + ports + "; do ip link del $p; done", 1, "up", "cat /tmp/links"},
        {kPon, "", 1},
        {kPon, "\xff\xff\0\0\x09\0"s, 1},
        {kPon, std::string(5000, '\x09'), 1},
        // The device's writer goes: the reads that find nothing cost under 5% of a core; a new writer is read.
        {kSh, "kill $(pgrep -fx 'sleep infinity') && t() { awk '{print $14 + $15}' /proc/$(pidof zn_event_agent)/stat; "
              "} && a=$(t) && sleep 4 && [ $(($(t) - a)) -lt $(($(getconf CLK_TCK) / 5)) ] && echo idle > /tmp/idle",
         1, "idle", "cat /tmp/idle"},
        {kKeys, "1 408 2 1 408 0", 1},
        {kKeys, "1 594 7 4 4 4 0 0 0 1 65535 -1 1 237 1 1 237 -2147483648 1 237 0", 1},
        {kFilter, "printf 'mac count\\n$(>/777) 5\\n02:00:00:00:77:05;>/777 1\\n' "
                  ">/run/znkemu/macfilter/stat", 1, "not a mac address"},
        {kFilter, "printf 'mac count\\n\\377\\0 9\\n" + std::string(300, 'f') + " 1\\n\\n' >/run/znkemu/macfilter/stat",
         1},
        {kFilter, "printf '02:00:00:00:10:01 - eth1;touch /tmp/pwned\\n' > /tmp/LanEthmacfilter_table && "
                  "bridge fdb add 02:00:00:00:77:06 dev eth1 master dynamic", 1},
    };
    for (const auto &r : rows) {
        const Entry &e = entries[r.way];
        SCOPED_TRACE(e.send + " " + (e.hex ? hex(r.bytes) : r.bytes).substr(0, 160) + " x" + std::to_string(r.count));
        const std::string before = sh(r.where).out, effect = sh(e.where).out;
        sh(e.send.empty() ? r.bytes
                          : e.send + " " + (e.hex ? "'" + hex(r.bytes) + "'" : r.bytes) +
                                (e.send.find(" dgram ") != std::string::npos ? " " + std::to_string(r.count) : ""));
        EXPECT_TRUE(added(r.where, before, r.shows)) << sh(r.where).out;
        ASSERT_TRUE(run(e.valid));
        EXPECT_TRUE(added(e.where, effect, e.effect)) << e.valid << "\n" << sh(e.where).out;
        ASSERT_EQ(waitpid(agent, nullptr, WNOHANG), 0) << file_text(kOut);
        // The MAC filter's text is upper-cased before it could reach a shell: /777 survives that.
        for (const char *mark : {kPwned, "/777"})
            ASSERT_NE(access(mark, F_OK), 0) << mark;
        ASSERT_EQ(file_text("/var/log/vgw/stubs.log").find("reboot"), std::string::npos);
    }
    EXPECT_EQ(file_text(kOut).find("Sanitizer"), std::string::npos);
    sh("vgw usb clear");
    stop_process(agent);
    stop_process(monitor);
}
