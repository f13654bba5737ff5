// The user-agent channel: the walk of a datagram, device typing, DHCP option
// reports and their host names, with the events read from the gateway's bus.
#include <gtest/gtest.h>
#include <linux/netlink.h>
#include <poll.h>

#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "lanhost_charset.h"
#include "lanhost_useragent.h"
#include "shell.h"
#include "znsmsg.h"

using zntest::eventually;
using zntest::sh;
using Events = std::vector<std::string>;

namespace {

const std::string kMacA("\x02\xaa\xbb\xcc\xdd\x01", 6), kMacB("\x02\xaa\xbb\xcc\xdd\x02", 6);
const std::string kIphone = "User-Agent: Mozilla/5.0 (iPhone; CPU iPhone OS 17_0 like Mac OS X)";
const std::string kWindows = "User-Agent: Mozilla/5.0 (Windows NT 10.0; Win64; x64)";
const std::string kName = "\xd6\xd0\xce\xc4", kNameUtf8 = "\xe4\xb8\xad\xe6\x96\x87"; // 中文

// A netlink message padded to 4 bytes; len 0 gives it its true length.
std::string message(uint16_t type, const std::string &body, uint32_t len = 0) {
    nlmsghdr h{len ? len : uint32_t(sizeof h + body.size()), type, 0, 0, 0};
    std::string m(reinterpret_cast<const char *>(&h), sizeof h);
    m += body;
    return m.append((4 - m.size() % 4) % 4, '\0');
}
std::string times(int n, const std::string &s) { return n ? s + times(n - 1, s) : ""; }
std::string report(const std::string &mac, const std::string &text) {
    return message(NLMSG_DONE, mac + text + std::string(1, '\0'));
}

class UserAgent : public testing::Test {
protected:
    static void SetUpTestSuite() { bus = zns_eventSubscribe(); }
    void SetUp() override { ASSERT_GE(bus, 0); }
    void TearDown() override {
        while (dhcpRequestListHead)
            list_del_dhcpRequestEntry(dhcpRequestListHead);
    }
    // The events the walk of datagram sends, as znsMonitor prints them.
    static Events walk(const std::string &datagram, void (*walker)(const uint8_t *, size_t) = lanhost_ua_walk) {
        walker(reinterpret_cast<const uint8_t *>(datagram.data()), datagram.size());
        return received(0);
    }
    static Events received(int wait_ms) {
        Events out;
        pollfd p{bus, POLLIN, 0};
        while (poll(&p, 1, out.empty() ? wait_ms : 0) == 1) {
            uint32_t event, code;
            char payload[ZNS_EVENT_PAYLOAD_MAX + 1];
            int has;
            if (zns_eventReceive(bus, &event, &code, payload, sizeof payload, &has) == 0)
                out.push_back(std::to_string(event) + " " + std::to_string(code) + " " + payload);
        }
        return out;
    }
    static int bus;
};
int UserAgent::bus = -1;

} // namespace

TEST_F(UserAgent, TypesByTheFirstListWithAWordInAnyCase) {
    const struct {
        std::string text, event;
    } cases[] = {
        {kIphone, "1601 32 02:aa:bb:cc:dd:01 1 useragent"},
        {"User-Agent: Opera MOBILE", "1601 32 02:aa:bb:cc:dd:01 1 useragent"},
        {"User-Agent: Mozilla/5.0 (iPad; CPU OS 17_0 like Mac OS X)", "1601 32 02:aa:bb:cc:dd:01 2 useragent"},
        {"User-Agent: Mozilla/5.0 (iPad; CPU OS 17_0 like Mac OS X) Mobile/15E148", "1601 32 02:aa:bb:cc:dd:01 1 useragent"},
        {kWindows, "1601 32 02:aa:bb:cc:dd:01 3 useragent"},
        {"User-Agent: curl/8.5.0", ""},
        {"user-agent: Mozilla/5.0 (Windows NT 10.0)", ""},
        {"User-Agent: STB CMCC E1600", ""},
    };
    for (const auto &c : cases)
        EXPECT_EQ(walk(report(kMacA, c.text)), c.event.empty() ? Events{} : Events{c.event}) << c.text;
}

TEST_F(UserAgent, TypeIsFoundOncePerDatagram) {
    EXPECT_EQ(walk(report(kMacA, kWindows) + report(kMacB, kIphone)),
              (Events{"1601 32 02:aa:bb:cc:dd:01 3 useragent", "1601 32 02:aa:bb:cc:dd:02 3 useragent"}));
    EXPECT_EQ(walk(report(kMacA, "User-Agent: curl") + report(kMacB, kIphone)),
              Events{"1601 32 02:aa:bb:cc:dd:02 1 useragent"});
    EXPECT_EQ(walk(report(kMacB, kIphone)), Events{"1601 32 02:aa:bb:cc:dd:02 1 useragent"});
}

TEST_F(UserAgent, WalkEndsAtAnErrorOrABadLengthAndStaysInsideEachMessage) {
    const Events a{"1601 32 02:aa:bb:cc:dd:01 3 useragent"};
    const struct {
        const char *what;
        std::string datagram;
        Events events;
    } cases[] = {
        {"other types are skipped", message(1, "x") + report(kMacA, kWindows), a},
        {"NLMSG_ERROR ends the walk", report(kMacA, kWindows) + message(NLMSG_ERROR, "") + report(kMacB, kIphone), a},
        {"length 15", message(NLMSG_DONE, kMacA + kWindows, 15), {}},
        {"length beyond the data", message(NLMSG_DONE, kMacA + kWindows, 4096), {}},
        {"shorter than a header", std::string(15, '\x10'), {}},
        {"report without a MAC", message(NLMSG_DONE, "\x02") + report(kMacA, kWindows), a},
        {"text that runs past its message", message(NLMSG_DONE, kMacA + "User-Agent: Windows", 16 + 6 + 12), {}},
    };
    for (const auto &c : cases)
        EXPECT_EQ(walk(c.datagram), c.events) << c.what;
}

TEST_F(UserAgent, DhcpOptionReportsWaitInOneEntryPerMac) {
    EXPECT_EQ(walk(report(kMacA, "bridge_dhcp_option,requestip=192.168.1.50,hostname=" + kName + ",alt=x") +
                   report(kMacB, "bridge_dhcp_option,ip=10.0.0.9 User-Agent: Windows")),
              Events{}) << "a report with the keyword is a DHCP option report only";
    EXPECT_EQ(walk(report(kMacA, "bridge_dhcp_option,requestip=192.168.1.51")), Events{});
    ASSERT_NE(dhcpRequestListHead, nullptr);
    EXPECT_STREQ(dhcpRequestListHead->macAddr, "02:aa:bb:cc:dd:02") << "newest first";
    dhcpRequestEntry *a = list_find_dhcpRequestEntry("02:aa:bb:cc:dd:01");
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(a->next, nullptr) << "one entry per MAC";
    EXPECT_STREQ(a->requestedIp, "192.168.1.51");
    EXPECT_EQ(a->hostName, kNameUtf8);
    EXPECT_STREQ(a->hostNameAlt, "x");
}

TEST(DhcpOptionReport, FieldsByPositionValuesBehindTheFirstEquals) {
    const struct {
        std::string text, ip, name, alt;
    } cases[] = {
        {"bridge_dhcp_option,requestip=192.168.1.50,hostname=" + kName + ",alt=x", "192.168.1.50", kNameUtf8, "x"},
        {"bridge_dhcp_option,requestip=192.168.1.50", "192.168.1.50", "old", "oldalt"},
        {"bridge_dhcp_option", "10.0.0.1", "old", "oldalt"},
        {"bridge_dhcp_option,,requestip=1.2.3.4,,hostname=pc,alt=", "1.2.3.4", "pc", ""},
        {"bridge_dhcp_option,noequals,n=a=b", "10.0.0.1", "a=b", "oldalt"},
        {"bridge_dhcp_option,ip=1.2.3.4,name=My-PC_01", "1.2.3.4", "My-PC_01", "oldalt"},
        {"bridge_dhcp_option,ip=1.2.3.4,name=ab\xff\xfe" + kName, "1.2.3.4", "ab", "oldalt"},
        {"o,ip=192.168.100.1001,n=" + times(200, "n") + ",a=" + times(200, "a"), "192.168.100.100", times(127, "n"),
         times(127, "a")},
        // 64 characters of two bytes in gb2312 and three in UTF-8: 42 fit, whole.
        {"o,ip=1.2.3.4,n=" + times(64, kName.substr(0, 2)), "1.2.3.4", times(42, kNameUtf8.substr(0, 3)), "oldalt"},
    };
    for (const auto &c : cases) {
        dhcpRequestEntry e{nullptr, "02:aa:bb:cc:dd:01", "10.0.0.1", "old", "oldalt"};
        lanhost_dhcp_option_update(&e, c.text.data(), c.text.size());
        EXPECT_EQ(e.requestedIp, c.ip) << c.text;
        EXPECT_EQ(e.hostName, c.name) << c.text;
        EXPECT_EQ(e.hostNameAlt, c.alt) << c.text;
    }
}

TEST(Charset, ConvertsIntoATerminatedBuffer) {
    char out[4] = "xyz";
    EXPECT_EQ(charsetConvert("no-such-charset", "utf-8", "a", 1, out, sizeof out), -1);
    EXPECT_EQ(hostNameToUtf8("PC1", 3, out, sizeof out), 0);
    EXPECT_STREQ(out, "PC1");
    EXPECT_EQ(hostNameToUtf8(kName.data(), kName.size(), out, sizeof out), -1) << "no room for the second character";
    EXPECT_EQ(out, kNameUtf8.substr(0, 3));
}

TEST_F(UserAgent, StandAloneReaderTriesAllFiveListsAndSendsUpperCaseWithCode64) {
    EXPECT_EQ(walk(report(kMacA, "Linux; STB") + report(kMacB, "x"), lanhost_ua_thread_walk),
              (Events{"1601 64 02:AA:BB:CC:DD:01 4 useragent", "1601 64 02:AA:BB:CC:DD:02 4 useragent"}));
    EXPECT_EQ(walk(report(kMacA, "STB CMCC"), lanhost_ua_thread_walk), Events{"1601 64 02:AA:BB:CC:DD:01 5 useragent"});

    // Started for real, it greets the module and reads its reports for ever.
    std::thread(zn_event_lanhost_httpThread, nullptr).detach();
    ASSERT_TRUE(eventually([] { return sh("znkernel log").out.find("user space lanhost http thread") != std::string::npos; }));
    ASSERT_EQ(sh("znkernel ua report 02:aa:bb:cc:dd:03 'User-Agent: Windows'").status, 0);
    EXPECT_EQ(received(10000), Events{"1601 64 02:AA:BB:CC:DD:03 3 useragent"});
}
