// ARP probes against real hosts on the virtual LAN, and the reply reader on
// frames changed one field at a time.
#include <gtest/gtest.h>
#include <arpa/inet.h>
#include <poll.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <vector>

#include "lanhost.h"
#include "lanhost_arp.h"
#include "lanhost_sockets.h"
#include "lanhost_store.h"
#include "shell.h"

using zntest::sh;

namespace {

constexpr const char *kMac = "02:00:00:00:52:01"; // host arp1 on eth3, answers at 192.168.1.52
constexpr const char *kWan = "InternetGatewayDevice.WANDevice.1.WANConnectionDevice.1.WANIPConnection.1";

std::vector<uint8_t> hex(const std::string &h) {
    std::vector<uint8_t> b;
    for (size_t i = 0; i + 1 < h.size(); i += 2)
        b.push_back(uint8_t(std::stoul(h.substr(i, 2), nullptr, 16)));
    return b;
}

// A reply of host kMac to the gateway: sender 192.168.1.77, target 192.168.1.1.
const std::string kReply = "020000000001"
                           "020000005201"
                           "0806"
                           "0001080006040002"
                           "020000005201c0a8014d"
                           "020000000001c0a80101";

lhost *add_host(const char *mac, const char *port, const char *ip) {
    lhost *h = list_init_add_lhost();
    macStr_to_bytes(h->mac, mac);
    lanhost_copy_text(h->macAddr, mac);
    lanhost_copy_text(h->brPortName, port);
    lanhost_copy_text(h->ipAddr, ip);
    h->active = 1;
    return h;
}

} // namespace

class Arp : public testing::Test {
protected:
    static void SetUpTestSuite() {
        ASSERT_EQ(sh("[ -e /sys/class/net/br0 ] || vgw lan up").status, 0);
        ASSERT_EQ(sh(std::string("vgw host add arp1 eth3 ") + kMac + " 192.168.1.52/24").status, 0);
        storeHandle = zns_xmlShmInit();
        lanhostEventBase = event_base_new();
        ASSERT_TRUE(storeHandle && lanhostEventBase);
    }
    void TearDown() override {
        while (hostListHead)
            list_del_lhost(hostListHead);
    }
};

TEST(ArpFrames, RequestIsOneUnicastFrameOf64Bytes) {
    uint8_t frame[kArpRequestSize];
    const uint8_t host[6] = {2, 0, 0, 0, 0x52, 1}, own[6] = {2, 0, 0, 0, 0, 1};
    const uint8_t ownIp[4] = {192, 168, 1, 1}, hostIp[4] = {192, 168, 1, 52};
    lanhost_arp_request_build(frame, host, own, ownIp, hostIp);
    std::vector<uint8_t> want = hex("020000005201"
                                    "020000000001"
                                    "0806"
                                    "0001080006040001"
                                    "020000000001c0a80101"
                                    "000000000000c0a80134");
    want.resize(kArpRequestSize, 0);
    EXPECT_EQ(std::vector<uint8_t>(frame, frame + sizeof frame), want);
}

TEST(ArpFrames, ReplyParserReadsOnlyWholeReplies) {
    struct Case {
        const char *what;
        std::function<void(std::vector<uint8_t> &)> change;
        Parse check;
    } cases[] = {
        {"valid", [](std::vector<uint8_t> &) {}, Parse::kOk},
        {"padded to 60", [](std::vector<uint8_t> &f) { f.resize(60, 0); }, Parse::kOk},
        {"41 bytes", [](std::vector<uint8_t> &f) { f.pop_back(); }, Parse::kTooShort},
        {"empty", [](std::vector<uint8_t> &f) { f.clear(); }, Parse::kTooShort},
        {"request", [](std::vector<uint8_t> &f) { f[21] = 1; }, Parse::kWrongType},
        {"operation high byte", [](std::vector<uint8_t> &f) { f[20] = 1; }, Parse::kWrongType},
    };
    for (const Case &c : cases) {
        std::vector<uint8_t> f = hex(kReply);
        c.change(f);
        ArpReply r{};
        EXPECT_EQ(lanhost_arp_reply_parse(f.data(), f.size(), &r), c.check) << c.what;
        if (c.check == Parse::kOk) {
            EXPECT_EQ(memcmp(r.srcMac, "\x02\0\0\0\x52\x01", 6), 0);
            EXPECT_EQ(memcmp(r.dstMac, "\x02\0\0\0\0\x01", 6), 0);
            EXPECT_EQ(memcmp(r.senderIp, "\xc0\xa8\x01\x4d", 4), 0);
            EXPECT_EQ(memcmp(r.targetIp, "\xc0\xa8\x01\x01", 4), 0);
        }
    }
}

TEST_F(Arp, AnsweredProbeEndsAndASecondRequestKeepsTheOneTimer) {
    int fd = -1;
    ASSERT_EQ(zn_event_arpPing_raw_sock_init(&fd), 0);
    lhost *h = add_host(kMac, "eth3", "192.168.1.52");
    zn_event_lanhost_arpping(h);
    ASSERT_EQ(h->arpState, 1);
    event *timer = h->arpTimer;
    ASSERT_NE(timer, nullptr);
    zn_event_lanhost_arpping(h);
    EXPECT_EQ(h->arpTimer, timer);
    EXPECT_EQ(event_base_get_num_events(lanhostEventBase, EVENT_BASE_COUNT_ADDED), 1);

    pollfd p{fd, POLLIN, 0};
    while (h->arpState == 1 && poll(&p, 1, 3000) == 1)
        zn_event_lanhost_arpreply_read_cb(fd, EV_READ, nullptr);
    EXPECT_EQ(h->arpState, 0) << "the host answered";
    EXPECT_EQ(h->arpTimer, nullptr);
    EXPECT_EQ(h->active, 1);
    close(fd);
}

TEST_F(Arp, SilenceTakesTheHostOfflineOnce) {
    lhost *h = add_host("02:00:00:00:52:09", "eth3", "192.168.1.59");
    wrapperZns_lanhost_update(h->mac, h->ipAddr, AF_INET, 0);
    zn_event_lanhost_arpping(h);
    ASSERT_EQ(h->arpState, 1);
    event_base_dispatch(lanhostEventBase); // until the time-out, the only event
    EXPECT_EQ(h->active, 0);
    EXPECT_EQ(h->arpState, 0);
    EXPECT_EQ(h->arpTimer, nullptr);
    EXPECT_STREQ(h->ipAddr, "192.168.1.59") << "the address stays";
    auto *obj = static_cast<const uint8_t *>(wrapperZns_get_lanhost_byMac(h->mac));
    ASSERT_NE(obj, nullptr);
    EXPECT_EQ(obj[kHostActiveAt], 0);
}

TEST_F(Arp, HostsWithoutAUsableAddressOrOnWirelessOrWithoutATimerAreNotProbed) {
    for (const char *ip : {"", "0.0.0.0", "192.168.1"}) {
        lhost *h = add_host("02:00:00:00:52:02", "eth3", ip);
        zn_event_lanhost_arpping(h);
        EXPECT_EQ(h->arpState, 0) << ip;
        EXPECT_EQ(h->arpTimer, nullptr) << ip;
        TearDown();
    }
    lhost *h = add_host("02:00:00:00:52:02", "ra0.0", "192.168.1.53");
    lanhost_copy_text(h->Layer2Interface, "InternetGatewayDevice.LANDevice.1.WLANConfiguration.9");
    zn_event_lanhost_arpping(h);
    EXPECT_EQ(h->arpTimer, nullptr);
    lanhost_copy_text(h->Layer2Interface, "");
    event_base *base = lanhostEventBase;
    lanhostEventBase = nullptr; // no timer can be made
    zn_event_lanhost_arpping(h);
    lanhostEventBase = base;
    EXPECT_EQ(h->arpState, 0) << "a probe without its timer could never end";
    EXPECT_EQ(h->arpTimer, nullptr);
}

TEST_F(Arp, ReplyEndsTheProbeAndGivesItsAddressOnlyToBridgedPorts) {
    const std::vector<uint8_t> reply = hex(kReply);
    lhost *h = add_host(kMac, "eth3", "192.168.1.52");
    ASSERT_EQ(wrapper_libevent_lhost_addArptimer(h, 3), 0);
    h->arpState = 1;
    lanhost_arp_reply_handle(reply.data(), reply.size());
    EXPECT_EQ(h->arpState, 0);
    EXPECT_EQ(h->arpTimer, nullptr);
    EXPECT_STREQ(h->ipAddr, "192.168.1.52") << "eth3 serves no bridged connection";

    ASSERT_EQ(sh(std::string("znsUtil -s ") + kWan + " ConnectionType string IP_Bridged && znsUtil -s " + kWan +
                 " X_ZN_LanInterface string InternetGatewayDevice.LANDevice.1.LANEthernetInterfaceConfig.4")
                  .status,
              0);
    h->active = 0;
    lanhost_arp_reply_handle(reply.data(), reply.size());
    EXPECT_STREQ(h->ipAddr, "192.168.1.77");
    EXPECT_EQ(h->active, 1);
    auto *obj = static_cast<const char *>(wrapperZns_get_lanhost_byMac(h->mac));
    ASSERT_NE(obj, nullptr);
    EXPECT_STREQ(obj + kHostIpAddressAt, "192.168.1.77");

    std::vector<uint8_t> stranger = reply;
    stranger[11] = 0x99;
    lanhost_arp_reply_handle(stranger.data(), stranger.size());
    EXPECT_EQ(list_find_lhost("02:00:00:00:52:99"), nullptr);
    ASSERT_EQ(sh(std::string("znsUtil -s ") + kWan + " ConnectionType string IP_Routed").status, 0);
}
