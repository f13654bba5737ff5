// The platform's tools and services as a firmware user meets them, each
// test in its own virtual gateway process tree.
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <csignal>
#include <cstdio>
#include <string>

#include "libzn.h"
#include "shell.h"
#include "znsmsg.h"
#include "znsutils.h"

using zntest::eventually;
using zntest::file_text;
using zntest::sh;

namespace {

const std::string kHost = "InternetGatewayDevice.LANDevice.1.Hosts.Host.7";

std::string get(const std::string &path, const std::string &param) {
    auto r = sh("znsUtil -g " + path + " " + param);
    return r.status == 0 ? r.out : "ERR " + r.out;
}

} // namespace

TEST(Tools, ZnsUtilRoundTripsEveryTypeAndRefusesBadInput) {
    ASSERT_EQ(sh("znsUtil -a " + kHost).status, 0);
    EXPECT_EQ(sh("znsUtil -a " + kHost).status, 1) << "exists already";
    struct Case {
        const char *param, *type, *in, *out;
    } good[] = {
        {"HostName", "string", "'my laptop'", "my laptop\n"},
        {"HostName", "string", "''", "\n"},
        {"StartUptime", "uint", "4294967295", "4294967295\n"},
        {"LeaseTimeRemaining", "int", "-1", "-1\n"},
        {"Active", "bool", "1", "1\n"},
        {"MACAddress", "mac", "AA:BB:cc:00:11:22", "aa:bb:cc:00:11:22\n"},
    };
    for (const Case &c : good) {
        ASSERT_EQ(sh("znsUtil -s " + kHost + " " + c.param + " " + c.type + " " + c.in).status, 0) << c.param;
        EXPECT_EQ(get(kHost, c.param), c.out) << c.param;
    }
    EXPECT_EQ(get("InternetGatewayDevice.X_ZN_WiFi.SSID.1.WPS", "X_ZN_Action"), "0\n");
    ASSERT_EQ(sh("znsUtil -s InternetGatewayDevice.X_ZN_WiFi.SSID.1.WPS X_ZN_Action uint 3").status, 0);
    EXPECT_EQ(get("InternetGatewayDevice.X_ZN_WiFi.SSID.1.WPS", "X_ZN_Action"), "3\n");

    const std::string before = sh("znsUtil -l " + kHost).out;
    const char *bad[] = {
        "-s InternetGatewayDevice.LANDevice.1.Hosts.Host.8 HostName string x", // absent instance
        "-s InternetGatewayDevice.Nowhere HostName string x",
        "-s " "InternetGatewayDevice.LANDevice.1.Hosts.Host.7 NoSuch string x",
        "-s InternetGatewayDevice.LANDevice.1.Hosts.Host.7 HostName uint 3",      // wrong type word
        "-s InternetGatewayDevice.LANDevice.1.Hosts.Host.7 StartUptime uint -1",
        "-s InternetGatewayDevice.LANDevice.1.Hosts.Host.7 StartUptime uint 4294967296",
        "-s InternetGatewayDevice.LANDevice.1.Hosts.Host.7 StartUptime uint 12abc",
        "-s InternetGatewayDevice.LANDevice.1.Hosts.Host.7 LeaseTimeRemaining int 2147483648",
        "-s InternetGatewayDevice.LANDevice.1.Hosts.Host.7 Active bool 2",
        "-s InternetGatewayDevice.LANDevice.1.Hosts.Host.7 MACAddress mac aa:bb:cc:dd:ee",
        "-s InternetGatewayDevice.LANDevice.1.Hosts.Host.7 MACAddress mac aa:bb:cc:dd:ee:fg",
        "-s InternetGatewayDevice.X_ZN_WiFi.SSID.1.WPS X_ZN_Action uint 256",
        "-d InternetGatewayDevice.LANDevice.1.Hosts.Host.99",
        "-a InternetGatewayDevice.LANDevice.1.Hosts",                              // not an instance
        "-g InternetGatewayDevice.LANDevice.1.Hosts.Host.7",                       // missing parameter
        "-x InternetGatewayDevice",
    };
    for (const char *args : bad) {
        auto r = sh(std::string("znsUtil ") + args);
        EXPECT_NE(r.status, 0) << args;
        EXPECT_FALSE(r.out.empty()) << "no message for: " << args;
    }
    std::string name(129, 'n');
    EXPECT_EQ(sh("znsUtil -s " + kHost + " HostName string " + name).status, 0);
    EXPECT_NE(sh("znsUtil -s " + kHost + " HostName string " + name + "n").status, 0) << "one past the field";
    EXPECT_EQ(sh("znsUtil -s " + kHost + " HostName string ''").status, 0);
    EXPECT_EQ(sh("znsUtil -l " + kHost).out, before) << "a refused write changed something";

    // Instances list in rising numeric order.
    for (int i : {10, 9})
        ASSERT_EQ(sh("znsUtil -a InternetGatewayDevice.LANDevice.1.Hosts.OfflineHost." + std::to_string(i)).status, 0);
    std::string list = sh("znsUtil -l InternetGatewayDevice.LANDevice.1.Hosts").out;
    EXPECT_LT(list.find("Host.7."), list.find("OfflineHost.9."));
    EXPECT_LT(list.find("OfflineHost.9."), list.find("OfflineHost.10."));
    EXPECT_EQ(sh("znsUtil -d InternetGatewayDevice.LANDevice.1.Hosts.OfflineHost.10").status, 0);
    EXPECT_EQ(sh("znsUtil -l InternetGatewayDevice.LANDevice.1.Hosts.OfflineHost.10").status, 1);
}

TEST(Tools, SavedTreeAndRestoredDefaultsSurviveARestartOfEveryProcess) {
    ASSERT_EQ(sh("znsUtil -a InternetGatewayDevice.LANDevice.1.Hosts.Host.3").status, 0);
    ASSERT_EQ(sh("znsUtil -s InternetGatewayDevice.LANDevice.1.Hosts.Host.3 HostName string 'back\\slash'").status, 0);
    ASSERT_EQ(sh("znsUtil -s InternetGatewayDevice.X_ZN_WiFi X_ZN_Enable bool 0").status, 0);
    zns_xml_handle_t *h = zns_xmlShmInit();
    ASSERT_EQ(znsXml_SaveIndirect(h), 0);
    zns_xmlShmDeInit(&h);
    const std::string saved = sh("znsUtil -l InternetGatewayDevice").out;

    // A reboot: shared memory is gone, flash stays. Fresh processes rebuild the tree.
    ASSERT_EQ(shm_unlink("/zns_store"), 0);
    EXPECT_EQ(sh("znsUtil -l InternetGatewayDevice").out, saved);
    EXPECT_EQ(get("InternetGatewayDevice.LANDevice.1.Hosts.Host.3", "HostName"), "back\\\\slash\n");

    ASSERT_EQ(sh("zncli sys restoredefault").status, 0);
    EXPECT_EQ(get("InternetGatewayDevice.X_ZN_WiFi", "X_ZN_Enable"), "1\n");
    EXPECT_NE(sh("znsUtil -l InternetGatewayDevice.LANDevice.1.Hosts.Host.3").status, 0);
    ASSERT_EQ(shm_unlink("/zns_store"), 0);
    EXPECT_EQ(get("InternetGatewayDevice.X_ZN_WiFi", "X_ZN_Enable"), "1\n");
    EXPECT_EQ(sh("znsUtil -l InternetGatewayDevice.LANDevice.1.Hosts").out,
              "InternetGatewayDevice.LANDevice.1.Hosts.HostNumberOfEntries=0\n");
}

TEST(Tools, ZnsMonitorReceivesEventsFromAnotherProcess) {
    EXPECT_EQ(zns_eventNotify(ZNS_EVENT_BTN_REBOOT, 0xC0000000, nullptr), 0) << "nobody listens yet";
    FILE *mon = popen("exec znsMonitor", "r");
    ASSERT_NE(mon, nullptr);
    ASSERT_TRUE(eventually([] { return sh("ls /run/zns_bus | grep -c '^sub\\.'").out == "1\n"; }));
    EXPECT_EQ(zns_eventNotify(ZNS_EVENT_TEMP_UPDATE_MAC_DEVTYPE, 32, "aa:bb:cc:dd:ee:ff 1 useragent"), 1);
    EXPECT_EQ(zns_eventNotify(ZNS_EVENT_BTN_REBOOT, 0xC0000000, nullptr), 1);
    EXPECT_EQ(zns_eventNotify(ZNS_EVENT_USB_ADD, 0xC0000000, "1, /dev/sda1, storage\n"), 1);
    std::string too_long(ZNS_EVENT_PAYLOAD_MAX + 1, 'x');
    EXPECT_EQ(zns_eventNotify(ZNS_EVENT_USB_ADD, 0xC0000000, too_long.c_str()), -1);
    char line[256];
    const char *expect[] = {"1601 0x20 aa:bb:cc:dd:ee:ff 1 useragent\n", "300 0xc0000000 -\n",
                            "1300 0xc0000000 1, /dev/sda1, storage\n"};
    for (const char *e : expect) {
        ASSERT_NE(fgets(line, sizeof line, mon), nullptr);
        EXPECT_STREQ(line, e);
    }
    sh("pkill -x znsMonitor");
    pclose(mon);
    // The departed subscriber's socket is cleared by the next delivery.
    EXPECT_EQ(zns_eventNotify(ZNS_EVENT_BTN_REBOOT, 0xC0000000, nullptr), 0);
    EXPECT_EQ(sh("ls /run/zns_bus | grep -c '^sub\\.'").out, "0\n");
}

TEST(Tools, ServicesFollowTheBoardAndJournalTheirEffects) {
    char province[LIBZN_PROVINCE_LEN] = "x";
    EXPECT_EQ(libzn_sys_getProvince(province), -1);
    EXPECT_STREQ(province, "");
    ASSERT_EQ(sh("zncli board set province ZHJ && zncli board set ponmode 7 && zncli board set BTN_MODE.Mode 2").status, 0);
    EXPECT_NE(sh("zncli board set 'a=b' 1").status, 0);
    EXPECT_EQ(libzn_sys_getProvince(province), 0);
    EXPECT_STREQ(province, "ZHJ");
    EXPECT_EQ(libzn_sys_getPonMode(), 7);
    char mode[LIBZN_BOARD_VALUE_LEN];
    EXPECT_EQ(libzn_board_config_content_read("BTN_MODE", "Mode", mode), 0);
    EXPECT_STREQ(mode, "2");

    libzn_sys_led(0);
    libzn_sys_turnOffLed(1);
    zns_cuc_set_sleep_mode(1);
    EXPECT_EQ(zns_cmcc_timedTask_handler(3), 0);
    EXPECT_EQ(zns_cmcc_deviceLimit_handler(4), 0);
    ASSERT_EQ(sh("zncli sys flushnat").status, 0);
    ASSERT_EQ(sh("zncli sys restoredefault").status, 0);
    std::string journal = file_text("/var/log/zn_platform.journal");
    for (const char *e : {" led 0\n", " turnOffLed 1\n", " sleepMode 1\n", " timedTask 3\n", " deviceLimit 4\n",
                          " flushnat zncli\n", " restoredefault zncli\n"})
        EXPECT_NE(journal.find(e), std::string::npos) << e << " missing in:\n" << journal;

    // The module log follows set_log_level, and an override raises it at run time.
    zns_registerModule("zns_test");
    set_log_level("zns_test", 1);
    testing::internal::CaptureStderr();
    zns_log_print(__FILE__, __func__, __LINE__, 4, "hidden %d\n", 1);
    zns_log_print(__FILE__, __func__, __LINE__, 1, "shown %d\n", 1);
    ASSERT_EQ(sh("zncli log set zns_test 5").status, 0);
    sleep(1); // the override is looked at once a second
    zns_log_print(__FILE__, __func__, __LINE__, 4, "raised %d", 2);
    std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(err.find("hidden"), std::string::npos);
    EXPECT_NE(err.find("zns_test[1] "), std::string::npos);
    EXPECT_NE(err.find("TestBody(): shown 1\n"), std::string::npos) << err;
    EXPECT_NE(err.find("raised 2\n"), std::string::npos) << err;
}

TEST(Tools, UsbQueriesReadTheRealDevice) {
    // A file system image stands in for the stick: libblkid probes both alike.
    ASSERT_EQ(sh("truncate -s 8M /tmp/stick.img && mkfs.ext4 -q -L ZNSTICK /tmp/stick.img").status, 0);
    char label[64] = "", fstype[8] = "";
    EXPECT_EQ(libzn_usb_getLabel("/tmp/stick.img", label), 0);
    EXPECT_STREQ(label, "ZNSTICK");
    EXPECT_EQ(libzn_usb_getFsType("/tmp/stick.img", fstype), 0);
    EXPECT_STREQ(fstype, "ext4");
    EXPECT_EQ(libzn_usb_getLabel("/tmp/no-such-device", label), -1);

    char line[256] = "";
    ASSERT_EQ(sh("printf 'Mass Storage\\r\\nsecond\\n' > /tmp/product").status, 0);
    EXPECT_EQ(libzn_usb_readFileFirstLine("/tmp/product", line), 0);
    EXPECT_STREQ(line, "Mass Storage");
    ASSERT_EQ(sh(": > /tmp/empty").status, 0);
    EXPECT_EQ(libzn_usb_readFileFirstLine("/tmp/empty", line), -1);
    EXPECT_STREQ(line, "Mass Storage") << "an empty file leaves the buffer as it was";
}

