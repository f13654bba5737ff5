// The user-agent channel: the walk of a datagram, device typing, DHCP option
// reports and their host names, with the events read from the gateway's bus.
#include <linux/netlink.h>
#include <poll.h>

#include <vector>

#include "lanhost_useragent.h"
#include "shell.h"
#include "znsmsg.h"

using namespace zntest;
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
    static void SetUpTestSuite() { ASSERT_GE(bus = zns_eventSubscribe(), 0); }
    void TearDown() override {
        while (dhcpRequestListHead)
            list_del_dhcpRequestEntry(dhcpRequestListHead);
    }
    // The events the walk of datagram sends, as znsMonitor prints them.
    static Events walk(const std::string &datagram) {
        lanhost_ua_walk(reinterpret_cast<const uint8_t *>(datagram.data()), datagram.size());
        Events out;
        pollfd p{bus, POLLIN, 0};
        while (poll(&p, 1, 0) == 1) {
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

// One datagram in, the events it sends; the type is found once per datagram.
TEST_F(UserAgent, TypesByTheFirstListWithAWordInAnyCaseOncePerDatagram) {
    const std::string a1 = "1601 32 02:aa:bb:cc:dd:01 1 useragent", a3 = "1601 32 02:aa:bb:cc:dd:01 3 useragent";
    const std::tuple<const char *, std::string, Events> cases[] = {
        {"any case", report(kMacA, "User-Agent: Opera MOBILE"), {a1}},
        {"mobile iPad", report(kMacA, "User-Agent: Mozilla/5.0 (iPad; CPU OS 17_0 like Mac OS X) Mobile/15E148"), {a1}},
        {"no word", report(kMacA, "User-Agent: curl/8.5.0"), {}},
        {"no keyword", report(kMacA, "user-agent: Mozilla/5.0 (Windows NT 10.0)"), {}},
        {"set-top box", report(kMacA, "User-Agent: STB CMCC E1600"), {}},
        {"two reports",
         report(kMacA, kWindows) + report(kMacB, kIphone),
         {a3, "1601 32 02:aa:bb:cc:dd:02 3 useragent"}},
        {"the first typed", report(kMacB, "User-Agent: curl") + report(kMacA, kIphone), {a1}},
        {"other types are skipped", message(1, "x") + report(kMacA, kWindows), {a3}},
        {"NLMSG_ERROR ends the walk",
         report(kMacA, kWindows) + message(NLMSG_ERROR, "") + report(kMacB, kIphone),
         {a3}},
        {"length 15", message(NLMSG_DONE, kMacA + kWindows, 15), {}},
        {"length beyond the data", message(NLMSG_DONE, kMacA + kWindows, 4096), {}},
        {"shorter than a header", std::string(15, '\x10'), {}},
        {"report without a MAC", message(NLMSG_DONE, "\x02") + report(kMacA, kWindows), {a3}},
        {"text that runs past its message", message(NLMSG_DONE, kMacA + "User-Agent: Windows", 16 + 6 + 12), {}},
    };
    for (const auto &[what, datagram, events] : cases)
        EXPECT_EQ(walk(datagram), events) << what;
}

TEST_F(UserAgent, DhcpOptionReportsWaitInOneEntryPerMac) {
    EXPECT_EQ(walk(report(kMacA, "bridge_dhcp_option,requestip=192.168.1.50,hostname=" + kName + ",alt=x") +
                   report(kMacB, "bridge_dhcp_option,ip=10.0.0.9 User-Agent: Windows")),
              Events{})
        << "a report with the keyword is a DHCP option report only";
    EXPECT_EQ(walk(report(kMacA, "bridge_dhcp_option,requestip=192.168.1.51")), Events{});
    dhcpRequestEntry *a = list_find_dhcpRequestEntry("02:aa:bb:cc:dd:01");
    ASSERT_TRUE(a && list_find_dhcpRequestEntry("02:aa:bb:cc:dd:02"));
    EXPECT_EQ(joined({a->requestedIp, a->hostName, a->hostNameAlt}), joined({"192.168.1.51", kNameUtf8, "x"}));
    EXPECT_EQ(a->next, nullptr) << "one entry per MAC";
}

TEST(DhcpOptionReport, FieldsByPositionValuesBehindTheFirstEquals) {
    const std::tuple<std::string, std::string, std::string, std::string> cases[] = {
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
    for (const auto &[text, ip, name, alt] : cases) {
        dhcpRequestEntry e{nullptr, "02:aa:bb:cc:dd:01", "10.0.0.1", "old", "oldalt"};
        lanhost_dhcp_option_update(&e, text.data(), text.size());
        EXPECT_EQ(joined({e.requestedIp, e.hostName, e.hostNameAlt}), joined({ip, name, alt})) << text;
    }
}
