// The unchanged agent in a virtual gateway: buttons, link changes and the PON driver, seen on
// the bus, in the store, the platform journal, the system log and the stubs' log.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <tuple>

#include "shell.h"

using namespace std::string_literals;
using namespace zntest;

namespace {

constexpr const char *kBus = "/tmp/bus.out", *kOut = "/tmp/agent.out", *kJournal = "/var/log/zn_platform.journal",
                     *kSyslog = "/var/log/messages", *kStubs = "/var/log/vgw/stubs.log";
pid_t agent, monitor;

int count(const std::string &text, const std::string &part) {
    int n = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        n++;
    return n;
}

// How often part was added to the file since it read before.
int added(const char *path, const std::string &before, const std::string &part) {
    return count(file_text(path), part) - count(before, part);
}

// Whether part comes up in the file at or after byte from.
bool shows(const char *path, const std::string &part, size_t from = 0) {
    return eventually([&] { return file_text(path).find(part, from) != std::string::npos; });
}

int in_store(const std::string &line) { return count(sh("znsUtil -l InternetGatewayDevice").out, line); }

// Returns once the link worker, the last of the three to start, listens.
void restart_agent() {
    if (!monitor) {
        ASSERT_EQ(sh("ip netns add far && zncli board set libzn_DbgLevel 3").status, 0);
        monitor = start_process(ZN_BUILD_DIR "/bin/znsMonitor", kBus);
        ASSERT_TRUE(eventually([] { return sh("ls /run/zns_bus | grep -q '^sub'").status == 0; }));
    }
    if (agent)
        stop_process(agent);
    agent = start_process(ZN_BUILD_DIR "/bin/zn_event_agent", kOut);
    ASSERT_TRUE(eventually([] { return sh("awk '$2 == 0 && $4 == \"00000551\"' /proc/net/netlink").out != ""; }));
}

// The reset key (408) pressed, repeated and let go as the input device's
// records (seconds, microseconds, type, code, value): a hold of 10,000 ms
// only if microseconds are cut to milliseconds and past 2^32 ms there is no wrap.
std::string raw_reset_hold() {
    std::string bytes;
    const auto put = [&](uint64_t v, int width) {
        for (int i = 0; i < width; i++)
            bytes += char(v >> 8 * i);
    };
    for (const auto &[sec, usec, value] : {std::tuple{4294966, 999999, 1}, {4294976, 999000, 2}, {4294977, 0, 0}})
        put(sec, 8), put(usec, 8), put(1, 2), put(408, 2), put(value, 4);
    return bytes;
}

} // namespace

TEST(Device, ResetHoldsDecideByProvinceAndResetType) {
    enum { kNone = 0, kReboot = 1, kRestore = 2, kLong = 4 | kRestore, kPhase2 = 8 | kLong };
    constexpr int kTap = -1, kRaw = -2; // no auto-repeat; raw_reset_hold()
    const struct { const char *province; int type, hold, outcome; } rows[] = {
        {"", 0, 9999, kNone},     {"", 0, kRaw, kRestore},  {"", 0, 10000, kRestore}, {"", 0, kTap, kRestore},
        {"", 1, 10000, kLong},
        {"", 2, 40000, kNone},    {"HUB", 1, 4999, kNone},  {"HUB", 2, 4999, kReboot}, {"HUB", 2, 5000, kRestore},
        {"HUB", 2, 14999, kRestore}, {"HUB", 2, 15000, kLong}, {"FUJ", 2, 4999, kReboot}, {"FUJ", 2, 9999, kRestore},
        {"FUJ", 2, 10000, kLong}, {"HEN", 2, 9999, kNone},  {"HEN", 2, 10000, kRestore}, {"HEN", 2, 19999, kRestore},
        {"HEN", 2, 20000, kLong}, {"ZHJ", 2, 9999, kNone},  {"ZHJ", 2, 10000, kLong},  {"ZHJ", 2, 19999, kLong},
        {"ZHJ", 2, 20000, kNone}, {"ZHJ", 2, 39999, kNone}, {"ZHJ", 2, 40000, kPhase2},
    };
    const char *flag = "/userconfig/config/long_restore_ZHJ_phase2_flag";
    std::string province = "-";
    int agents = 0;
    for (const auto &r : rows) {
        SCOPED_TRACE(std::string(r.province) + " type " + std::to_string(r.type) + " hold " + std::to_string(r.hold));
        if (province != r.province) {
            sh("zncli board set province '" + (province = r.province) + "'");
            restart_agent();
            agents++;
        }
        sh("znsUtil -s InternetGatewayDevice.X_ZN_SystemConfig ResetType uint " + std::to_string(r.type) +
           " && znsUtil -s InternetGatewayDevice.DeviceInfo ModelName string marked && rm -f " + flag);
        const std::string bus = file_text(kBus), journal = file_text(kJournal);
        // The LED press is handled after the reset press: its journal line closes the row.
        if (r.hold == kRaw) {
            const std::string bytes = raw_reset_hold();
            const int fd = open("/dev/input/event0", O_WRONLY);
            ASSERT_EQ(write(fd, bytes.data(), bytes.size()), ssize_t(bytes.size()));
            close(fd);
        }
        sh((r.hold == kRaw    ? "true"s
            : r.hold == kTap ? "znkernel button reset tap 0"s
                             : "znkernel button reset hold " + std::to_string(r.hold)) +
           " && znkernel button led tap 0");
        ASSERT_TRUE(eventually([&] { return added(kJournal, journal, "turnOffLed") == 1; }));
        EXPECT_TRUE(eventually([&] { return added(kBus, bus, "300 0xc0000000 -\n") == (r.outcome & kReboot); }));
        EXPECT_EQ(in_store("ModelName=marked\n") == 0, (r.outcome & kRestore) != 0);
        EXPECT_EQ(added(kJournal, journal, "restoredefault") == 1, (r.outcome & kLong) == kLong);
        EXPECT_EQ(access(flag, F_OK) == 0, r.outcome == kPhase2);
    }
    // Each agent held the reset button for 10 s, most more than once, and gave the LED signal once.
    EXPECT_EQ(count(file_text(kJournal), " led 0\n"), agents);
}

TEST(Device, ButtonTasksActOnTheStore) {
    const char *saved = "/userconfig/config/zns_store.conf", *wifi = "znsUtil -s InternetGatewayDevice.X_ZN_WiFi.SSID.";
    const std::string radio = "znsUtil -s InternetGatewayDevice.X_ZN_WiFi.Radio.",
                      reset = wifi + "1.WPS X_ZN_Action uint 0 && "s + wifi + "5.WPS X_ZN_Action uint 0 && " + wifi;
    // Each row: what the press wrote in the store, what it left alone there, and a line it wrote in file.
    const struct { std::string setup, press, wrote, left, file, line; } rows[] = {
        {"true", "wifi tap 0", "WiFi.X_ZN_Enable=0\n", "", saved, "WiFi.X_ZN_Enable=0\n"},
        {"true", "wlan-wps hold 2999", "WiFi.X_ZN_Enable=1\n", "", saved, "WiFi.X_ZN_Enable=1\n"},
        {wifi + "1.Security ModeEnabled string WEP-64"s, "wlan-wps hold 3000", "SSID.5.WPS.X_ZN_Action=1\n",
         "SSID.1.WPS.X_ZN_Action=0\n", kOut, "ap[1]: ModeEnabled = WEP-64"},
        // One access point refused by each check in turn; WPS starts on the other alone, or on none.
        {reset + "1.Security ModeEnabled string WPA2-PSK && " + radio + "2 Enable bool 0", "wlan-wps hold 3000",
         "SSID.1.WPS.X_ZN_Action=1\n", "SSID.5.WPS.X_ZN_Action=0\n", kOut, "Radio[2]:RadioEnabled = 0"},
        {reset + "5 SSIDAdvertisementEnabled bool 0 && " + radio + "2 Enable bool 1", "wlan-wps hold 3000",
         "SSID.1.WPS.X_ZN_Action=1\n", "SSID.5.WPS.X_ZN_Action=0\n", kOut, "ap[5]:SSIDAdvertisementEnabled = 0"},
        {reset + "5 SSIDAdvertisementEnabled bool 1 && " + wifi + "5.WPS Enable bool 0", "wlan-wps hold 3000",
         "SSID.1.WPS.X_ZN_Action=1\n", "SSID.5.WPS.X_ZN_Action=0\n", kOut, "ap[5]: WPS Enable = 0"},
        {reset + "1.WPS Enable bool 0", "wlan-wps hold 3000", "SSID.1.WPS.X_ZN_Action=0\n",
         "SSID.5.WPS.X_ZN_Action=0\n", kOut, "WPS can not be triggered because current setting is not match!"},
        {wifi + "5.WPS X_ZN_Action uint 0 && znsUtil -s InternetGatewayDevice.X_ZN_Mesh Enable bool 1"s, "wps tap 0",
         "X_ZN_Mesh.OnboardingTrigger=1\n", "SSID.5.WPS.X_ZN_Action=0\n", kOut, "btn_handler(): *** WPS TRIGGER ***"},
        {"znsUtil -s InternetGatewayDevice.X_ZN_SystemConfig ResetType uint 0", "reset hold 10000", "", "", kOut,
         "btn_handler(): *** recv BTN_EVENT_FACTORY_DEFAULT ***"},
        // The combined button's last hold of 3 s is cleared at the press: a tap switches Wi-Fi.
        {"true", "wlan-wps tap 0", "WiFi.X_ZN_Enable=0\n", "", saved, "WiFi.X_ZN_Enable=0\n"},
        {"true", "led tap 0", "X_ZN_LED.Leds_Turnoff=1\n", "", saved, "X_ZN_LED.Leds_Turnoff=1\n"},
    };
    sh("zncli log set zns_event_agent 4"); // for the trigger lines
    restart_agent();
    sh("zncli sys restoredefault");
    for (const auto &r : rows) {
        sh(r.setup + " && znkernel button " + r.press);
        const auto done = [&] { return in_store(r.wrote) && in_store(r.left) && count(file_text(r.file), r.line); };
        EXPECT_TRUE(eventually(done)) << r.press;
    }
    EXPECT_NE(file_text(kJournal).find("turnOffLed 1\n"), std::string::npos);
    // Trace-only mode leaves no mark: a press made in it is no press when its release comes.
    const std::string journal = file_text(kJournal);
    sh("zncli board set BTN_MODE.Mode 1 && znkernel button raw 1 594 1");
    ASSERT_TRUE(shows(kOut, "#### led control btn push down! ####\n"));
    sh("zncli board set BTN_MODE.Mode 0 && znkernel button raw 1 594 0 && znkernel button wifi tap 0");
    ASSERT_TRUE(eventually([] { return in_store("WiFi.X_ZN_Enable=1\n"); }));
    EXPECT_EQ(file_text(kJournal), journal);
}

TEST(Device, LinkChangesBecomeEventsAndSyslogLines) {
    const struct { std::string port, wanFile, line; int up; std::string key; } rows[] = { // down: next id
        {"eth1", "", "LAN", 100, "ETHER"},   {"lan2", "", "LAN", 100, "ETHER"}, {"ra0.0", "", "ssid", 102, "SSID"},
        {"rax1.0", "", "ssid", 102, "SSID"}, {"eth4", "GPON=eth4", "LAN", 100, "ETHER"},
        {"eth4", "ETHER=eth4", "WAN", 200, "ETHER"},
    };
    restart_agent();
    for (const auto &r : rows) {
        const std::string p = r.port, payload = " 0xc0000000 " + r.key + "=" + p + "\n";
        const std::string up = std::to_string(r.up) + payload, down = std::to_string(r.up + 1) + payload;
        const std::string crit = ".crit zn_event_agent: " + r.line + " " + p + " Link ";
        const size_t bus = file_text(kBus).size(), log = file_text(kSyslog).size();
        // The far end is up in a namespace of its own; without IPv6 the port makes few messages.
        sh("echo " + r.wanFile + " > /var/wanPhysicalType && ip link add " + p + " type veth peer " + p + " netns far" +
           " && echo 1 > /proc/sys/net/ipv6/conf/" + p + "/disable_ipv6 && ip -n far link set " + p + " up");
        ASSERT_TRUE(shows(kSyslog, crit + "Down", log)) << crit;
        sh("ip link set " + p + " up");
        EXPECT_TRUE(shows(kBus, up, bus) && shows(kSyslog, crit + "Up", log)) << crit;
        // Made down, handled before the up: the down event, unless on a WAN port that has not been up.
        const std::string events = file_text(kBus).substr(bus);
        EXPECT_EQ(count(events.substr(0, events.find(up)), down) > 0, r.line != "WAN") << crit;
        sh("ip link set " + p + " down");
        EXPECT_TRUE(shows(kBus, down, file_text(kBus).find(up, bus)) &&
                    shows(kSyslog, crit + "Down", file_text(kSyslog).find(crit + "Up", log))) << crit;
        sh("ip link del " + p);
    }
}

TEST(Device, WorkersWithoutTheirSourceEndAloneThenPonEventsAct) {
    sh("mv /dev/input/event0 /dev/input/away && znkernel pon off");
    restart_agent();
    for (const char *line : {"open /dev/input/event0 error\n", "ponApi_eventSocketInit failed", "[libzn Error]",
                             "failed to open netlink socket PF_NETLINK, SOCK_RAW proto=25"})
        EXPECT_TRUE(shows(kOut, line)) << line;
    sh("ip link add eth2 type veth peer eth2 netns far");
    EXPECT_TRUE(shows(kBus, "101 0xc0000000 ETHER=eth2\n")) << "the link worker, and so the agent, go on";
    sh("ip link del eth2; mv /dev/input/away /dev/input/event0; znkernel pon on; zncli board set ponmode 7");
    restart_agent();
    EXPECT_TRUE(shows(kOut, "ponApi_eventSocketInit(): bink netlink socket PF_NETLINK, SOCK_RAW proto=25, group 1"));
    // The agent starts at GPON; the store follows real changes only.
    const struct { int mode; std::string name, stored; } changes[] = {
        {1, "GPON", "x"}, {7, "EPON", "EPON"}, {8, "EPON", "x"}, {3, "GPON", "GPON"}};
    for (const auto &c : changes) {
        sh("for p in 'WANDevice.1.WANCommonInterfaceConfig WANAccessType' 'WANDevice.1.WANCommonInterfaceConfig "
           "X_ZN_WANAccessType' 'DeviceInfo X_CMCC_UpLinkType'; do znsUtil -s InternetGatewayDevice.$p string x; done");
        const std::string bus = file_text(kBus);
        sh("znkernel pon wan-change " + std::to_string(c.mode));
        EXPECT_TRUE(eventually([&] {
            return added(kBus, bus, "199 0xc0000000 " + c.name + "\n") == 1 &&
                   file_text("/tmp/FC_ponlink") == c.name + "\n";
        })) << c.mode;
        // The three values are the only ones whose names end in "Type" that hold a mode.
        EXPECT_TRUE(eventually([&] { return in_store("Type=" + c.stored + "\n") == 3; })) << c.mode;
    }
    const struct { int type; const char *line; int flushes, reboots; } recoveries[] = {
        {0, "but recover now", 0, 0}, {1, "need to clear software flow table", 1, 0},
        {2, "need to rebuild wifi", 0, 1}, {3, "need to reset device", 0, 1}};
    for (const auto &r : recoveries) {
        const std::string journal = file_text(kJournal), stubs = file_text(kStubs);
        sh("znkernel pon recovered " + std::to_string(r.type));
        EXPECT_TRUE(shows(kSyslog, ".err zn_event_agent: sdk error, "s + r.line) && eventually([&] {
            return added(kJournal, journal, "flushnat") == r.flushes && added(kStubs, stubs, "reboot") == r.reboots;
        })) << r.type;
    }
}
