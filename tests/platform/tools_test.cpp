// The platform's tools and services where no agent test meets them, each
// test in its own virtual gateway process tree: the store's flash file read
// back, the bus's edges, the module log's override. The board settings, the
// journal of the services and the USB queries are proven by the agent's
// device, timer and USB tests.
#include <sys/mman.h>

#include "shell.h"
#include "znsmsg.h"
#include "znsutils.h"

using namespace zntest;

namespace {

std::string get(const std::string &path, const std::string &param) {
    auto r = sh("znsUtil -g " + path + " " + param);
    return r.status == 0 ? r.out : "ERR " + r.out;
}

} // namespace

TEST(Tools, SavedTreeAndRestoredDefaultsSurviveARestartOfEveryProcess) {
    ASSERT_TRUE(run("znsUtil -a InternetGatewayDevice.LANDevice.1.Hosts.Host.3"));
    ASSERT_TRUE(run("znsUtil -s InternetGatewayDevice.LANDevice.1.Hosts.Host.3 HostName string 'back\\slash'"));
    ASSERT_TRUE(run("znsUtil -s InternetGatewayDevice.X_ZN_WiFi X_ZN_Enable bool 0"));
    zns_xml_handle_t *h = zns_xmlShmInit();
    ASSERT_EQ(znsXml_SaveIndirect(h), 0);
    zns_xmlShmDeInit(&h);
    const std::string saved = sh("znsUtil -l InternetGatewayDevice").out;

    // A reboot: shared memory is gone, flash stays. Fresh processes rebuild the tree.
    ASSERT_EQ(shm_unlink("/zns_store"), 0);
    EXPECT_EQ(sh("znsUtil -l InternetGatewayDevice").out, saved);
    EXPECT_EQ(get("InternetGatewayDevice.LANDevice.1.Hosts.Host.3", "HostName"), "back\\\\slash\n");

    ASSERT_TRUE(run("zncli sys restoredefault"));
    EXPECT_EQ(get("InternetGatewayDevice.X_ZN_WiFi", "X_ZN_Enable"), "1\n");
    EXPECT_NE(sh("znsUtil -l InternetGatewayDevice.LANDevice.1.Hosts.Host.3").status, 0);
    ASSERT_EQ(shm_unlink("/zns_store"), 0);
    EXPECT_EQ(get("InternetGatewayDevice.X_ZN_WiFi", "X_ZN_Enable"), "1\n");
    EXPECT_EQ(sh("znsUtil -l InternetGatewayDevice.LANDevice.1.Hosts").out,
              "InternetGatewayDevice.LANDevice.1.Hosts.HostNumberOfEntries=0\n");
}

// The agent's tests read its events through znsMonitor; here the bus's edges.
TEST(Tools, TheBusRefusesOverlongEventsAndForgetsDepartedSubscribers) {
    EXPECT_EQ(zns_eventNotify(ZNS_EVENT_BTN_REBOOT, 0xC0000000, nullptr), 0) << "nobody listens yet";
    FILE *mon = popen("exec znsMonitor", "r");
    ASSERT_NE(mon, nullptr);
    ASSERT_TRUE(eventually([] { return sh("ls /run/zns_bus | grep -c '^sub\\.'").out == "1\n"; }));
    EXPECT_EQ(zns_eventNotify(ZNS_EVENT_USB_ADD, 0xC0000000, std::string(ZNS_EVENT_PAYLOAD_MAX + 1, 'x').c_str()), -1);
    EXPECT_EQ(zns_eventNotify(ZNS_EVENT_BTN_REBOOT, 0xC0000000, nullptr), 1);
    char line[256];
    ASSERT_NE(fgets(line, sizeof line, mon), nullptr);
    EXPECT_STREQ(line, "300 0xc0000000 -\n");
    sh("pkill -x znsMonitor");
    pclose(mon);
    // The departed subscriber's socket is cleared by the next delivery.
    EXPECT_EQ(zns_eventNotify(ZNS_EVENT_BTN_REBOOT, 0xC0000000, nullptr), 0);
    EXPECT_EQ(sh("ls /run/zns_bus | grep -c '^sub\\.'").out, "0\n");
}

TEST(Tools, TheModuleLogFollowsItsLevelAndItsOverride) {
    // The module log follows set_log_level, and an override, looked at once a
    // second, raises it at run time.
    zns_registerModule("zns_test");
    set_log_level("zns_test", 1);
    const int saved = dup(2), file = open("/tmp/module.log", O_WRONLY | O_CREAT | O_TRUNC, 0644);
    dup2(file, 2);
    zns_log_print(__FILE__, __func__, __LINE__, 4, "hidden %d\n", 1);
    zns_log_print(__FILE__, __func__, __LINE__, 1, "shown %d\n", 1);
    ASSERT_TRUE(run("zncli log set zns_test 5"));
    EXPECT_TRUE(eventually([] {
        zns_log_print(__FILE__, __func__, __LINE__, 4, "raised %d", 2);
        return file_text("/tmp/module.log").find("raised 2\n") != std::string::npos;
    }));
    dup2(saved, 2);
    const std::string err = file_text("/tmp/module.log");
    EXPECT_EQ(err.find("hidden"), std::string::npos);
    EXPECT_NE(err.find("zns_test[1] "), std::string::npos);
    EXPECT_NE(err.find("TestBody(): shown 1\n"), std::string::npos) << err;
}
