// IPv6 neighbour discovery of the tracker: the advertisement reader and its
// probe, the solicitation, and the dhcp6s and radvd report parsers.
#include <gtest/gtest.h>
#include <arpa/inet.h>
#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <vector>

#include "lanhost.h"
#include "lanhost_icmp6.h"
#include "lanhost_prefix.h"
#include "lanhost_sockets.h"
#include "lanhost_table.h"
#include "shell.h"

using zntest::sh;

namespace {

using Frame = std::vector<uint8_t>;
constexpr uint8_t kHostMac[6] = {0x02, 0, 0, 0, 0x10, 0x01}, kOtherMac[6] = {0x02, 0, 0, 0, 0x10, 0x02};
constexpr const char *kLinkLocal = "fe80::ff:fe00:1001";
const std::string kSetOwn = "znsUtil -s InternetGatewayDevice.LANDevice.1.LANHostConfigManagement.IPInterface.1 "
                            "X_CT-COM_IPv6Address string ";

// A neighbour advertisement as the packet socket reads it, 86 bytes.
Frame advert(const char *target = kLinkLocal, const uint8_t *mac = kHostMac) {
    Frame f(86, 0);
    f[0] = 0x02, f[5] = 0x01, f[12] = 0x86, f[13] = 0xDD, f[14] = 0x60, f[19] = 32, f[20] = 58, f[21] = 255;
    memcpy(&f[6], mac, 6);
    f[54] = 136, f[58] = 0x40, f[78] = 2, f[79] = 1;
    inet_pton(AF_INET6, target, &f[62]);
    memcpy(&f[80], mac, 6);
    return f;
}

// A host of the list; state 2 with a probe waiting for its answer.
lhost *add_host(int state, const char *linkLocal = kLinkLocal) {
    lhost *h = list_init_add_lhost();
    memcpy(h->mac, kHostMac, 6);
    lanhost_copy_text(h->macAddr, "02:00:00:00:10:01");
    lanhost_copy_text(h->ipv6LocalAddr, linkLocal);
    lanhost_copy_text(h->ipv6Addr, "2001:db8:1::10");
    if (state == 2)
        wrapper_libevent_lhost_addIcmp6timer(h, 60);
    h->icmp6State = state;
    return h;
}

} // namespace

class Ipv6 : public testing::Test {
protected:
    static void SetUpTestSuite() {
        ASSERT_EQ(sh("vgw lan up && vgw host add nd6 eth6 02:00:00:00:10:01").status, 0);
        storeHandle = zns_xmlShmInit();
        lanhostEventBase = event_base_new();
        lanhost_copy_text(gatewayBaseMac, "02:00:00:00:00:01");
    }
};

TEST_F(Ipv6, AdvertisementFramesAreCheckedFieldByField) {
    const struct {
        const char *what;
        std::function<void(Frame &)> change;
        Parse want;
    } cases[] = {
        {"valid", [](Frame &) {}, Parse::kOk},
        {"29 bytes", [](Frame &f) { f.resize(29); }, Parse::kTooShort},
        {"30 bytes, no type", [](Frame &f) { f.resize(30); }, Parse::kWrongType},
        {"a solicitation", [](Frame &f) { f[54] = 135; }, Parse::kWrongType},
        {"source link-layer option first", [](Frame &f) { f[78] = 1; }, Parse::kMissing},
        {"option cut short", [](Frame &f) { f.resize(85); }, Parse::kMissing},
    };
    for (const auto &c : cases) {
        Frame f = advert();
        c.change(f);
        NeighborAdvert na;
        EXPECT_EQ(lanhost_na_frame_parse(f.data(), f.size(), &na), c.want) << c.what;
    }
    Frame f = advert();
    NeighborAdvert na;
    ASSERT_EQ(lanhost_na_message_parse(&f[54], f.size() - 54, &na), Parse::kOk) << "as a raw ICMPv6 socket reads it";
    char text[INET6_ADDRSTRLEN];
    EXPECT_STREQ(inet_ntop(AF_INET6, na.target, text, sizeof text), kLinkLocal);
    EXPECT_EQ(memcmp(na.mac, kHostMac, 6), 0);
}

TEST_F(Ipv6, OnlyTheProbedLinkLocalAddressEndsAProbe) {
    int pair[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM, 0, pair), 0);
    Frame solicitation = advert();
    solicitation[54] = 135;
    const struct {
        const char *what;
        int state;
        Frame frame;
        const char *linkLocal;
        bool ends;
    } cases[] = {
        {"the probed address", 2, advert(), kLinkLocal, true},
        {"the same address written otherwise", 2, advert(), "FE80:0:0:0:0:FF:FE00:1001", true},
        {"another address of the host", 2, advert("2001:db8:1::10"), kLinkLocal, false},
        {"another MAC", 2, advert(kLinkLocal, kOtherMac), kLinkLocal, false},
        {"a solicitation", 2, solicitation, kLinkLocal, false},
        {"no probe outstanding", 0, advert(), kLinkLocal, false},
    };
    for (const auto &c : cases) {
        lhost *h = add_host(c.state, c.linkLocal);
        event *timer = h->icmp6Timer;
        send(pair[0], c.frame.data(), c.frame.size(), 0);
        zn_event_lanhost_ipv6MulticastSockRead_cb(pair[1], EV_READ, nullptr);
        EXPECT_EQ(h->icmp6State, c.ends ? 0 : c.state) << c.what;
        EXPECT_EQ(h->icmp6Timer, c.ends ? nullptr : timer) << c.what;
        EXPECT_STREQ(h->ipv6Addr, "2001:db8:1::10") << c.what << ": no address changes";
        list_del_lhost(h);
    }
    close(pair[0]);
    close(pair[1]);
}

TEST_F(Ipv6, TheOwnAddressComesFromTheStoreWithoutItsPrefixLength) {
    const struct {
        const char *value;
        int want;
        const char *address;
    } cases[] = {{"2001:db8::1/64", 1, "2001:db8::1"}, {"2001:db8::1", 1, "2001:db8::1"}, {"::1", 0, ""},
                 {"''", 0, ""}, {"garbage/64", 0, ""}};
    for (const auto &c : cases) {
        ASSERT_EQ(sh(kSetOwn + c.value).status, 0);
        in6_addr own{}, want{};
        inet_pton(AF_INET6, c.address, &want);
        EXPECT_EQ(lanhost_own_ipv6_address(&own), c.want) << c.value;
        EXPECT_TRUE(c.want != 1 || memcmp(&own, &want, sizeof own) == 0) << c.value;
    }
    ASSERT_EQ(sh("znsUtil -d InternetGatewayDevice.LANDevice.1.LANHostConfigManagement.IPInterface.1").status, 0);
    in6_addr own;
    EXPECT_EQ(lanhost_own_ipv6_address(&own), -1);
    ASSERT_EQ(sh("zncli sys restoredefault").status, 0);
}

TEST_F(Ipv6, TheSolicitationIs32BytesToTheTargetItself) {
    NeighborSolicit ns;
    ASSERT_TRUE(lanhost_ns_prepare("2001:db8:1::10", &ns));
    const uint8_t want[kNsSize] = {135, 0, 0, 0, 0, 0, 0, 0, 0x20, 0x01, 0x0d, 0xb8, 0, 1, 0, 0,
                                   0,   0, 0, 0, 0, 0, 0, 0x10, 1, 1, 0x02, 0, 0, 0, 0, 0x01};
    EXPECT_EQ(memcmp(ns.frame, want, kNsSize), 0);
    EXPECT_EQ(ns.dest.sin6_port, htons(58));
    EXPECT_EQ(ns.dest.sin6_scope_id, if_nametoindex("br0"));
    EXPECT_EQ(memcmp(&ns.dest.sin6_addr, &ns.frame[8], 16), 0);
    EXPECT_FALSE(lanhost_ns_prepare("2001:db8:1::10;reboot", &ns));
}

TEST_F(Ipv6, AProbeKeepsOneTimerAndEndsByAnswerOrTimeOut) {
    lhost *h = add_host(0, "");
    zn_event_lanhost_icmp6_ping(h);
    EXPECT_EQ(h->icmp6Timer, nullptr) << "no address, no probe";
    lanhost_copy_text(h->ipv6LocalAddr, "fe80::ff:fe00:9999"); // nobody answers
    ASSERT_EQ(sh(kSetOwn + "::1").status, 0);
    zn_event_lanhost_icmp6_ping(h);
    EXPECT_EQ(h->icmp6Timer, nullptr) << "no usable own address, no probe";
    ASSERT_EQ(sh("zncli sys restoredefault").status, 0);

    zn_event_lanhost_icmp6_ping(h);
    event *timer = h->icmp6Timer;
    ASSERT_NE(timer, nullptr);
    zn_event_lanhost_icmp6_ping(h);
    EXPECT_EQ(h->icmp6Timer, timer) << "a second request leaves the probe under way alone";
    event_base_loop(lanhostEventBase, EVLOOP_ONCE);
    EXPECT_EQ(h->icmp6Timer, nullptr) << "the timer fired and was released";
    EXPECT_EQ(h->icmp6State, 2);
    event_base *base = lanhostEventBase;
    lanhostEventBase = nullptr; // a timer that can't be added
    zn_event_lanhost_icmp6_ping(h);
    EXPECT_EQ(h->icmp6State, 0) << "no host is left waiting without a timer";
    lanhostEventBase = base;
    list_del_lhost(h);

    // A real host: the kernel resolves its link-local address, and the host's
    // advertisement ends the probe.
    int fd = -1;
    ASSERT_EQ(zn_event_icmpv6_raw_sock_init(&fd), 0);
    event *reader = event_new(base, fd, EV_READ | EV_PERSIST, zn_event_lanhost_ipv6MulticastSockRead_cb, nullptr);
    event_add(reader, nullptr);
    sh("ip -6 neigh flush dev br0");
    h = add_host(0);
    zn_event_lanhost_icmp6_ping(h);
    while (h->icmp6Timer)
        event_base_loop(base, EVLOOP_ONCE);
    EXPECT_EQ(h->icmp6State, 0) << "answered before the time-out";
    list_del_lhost(h);
    event_free(reader);
    close(fd);
}

TEST_F(Ipv6, Dhcp6sReportsAreBoundedFieldByField) {
    const std::string duid63(63, 'd'), addr43 = "2001:db8:1:2:3:4:" + std::string(26, '5');
    const struct {
        std::string text;
        bool fits;
        std::string duid, address;
        int64_t lease;
    } cases[] = {
        {"000100012ac0ffee 2001:db8:1::10 3600", true, "000100012ac0ffee", "2001:db8:1::10", 3600},
        {" \tduid\n2001:db8:1::10\t-1\n", true, "duid", "2001:db8:1::10", -1},
        {std::string("duid 2001:db8::1\0 3600", 22), true, "duid", "2001:db8::1", 0},
        {"duid", true, "duid", "", 0},
        {duid63 + " " + addr43 + " 1", true, duid63, addr43, 1},
        {duid63 + "d ::1 1", false, "", "", 0},
        {"duid " + addr43 + "5 1", false, "", "", 0},
        {"duid ::1 " + std::string(24, '9'), false, "", "", 0},
    };
    for (const auto &c : cases) {
        Dhcp6sLease lease;
        EXPECT_EQ(lanhost_dhcp6s_lease_parse(c.text.data(), c.text.size(), &lease) == Parse::kOk, c.fits) << c.text;
        EXPECT_EQ(lease.duid + std::string("|") + lease.address, c.duid + "|" + c.address) << c.text;
        EXPECT_EQ(lease.leaseTime, c.lease) << c.text;
    }
}

TEST_F(Ipv6, RadvdReportsJoinPrefixAndInterfaceIdentifierAsText) {
    const std::string long43 = "2001:db8:1:2:" + std::string(30, '0');
    const struct {
        std::string text;
        Parse want;
        const char *address;
    } cases[] = {
        {"2001:db8:1:2:: fe80::211:22ff:fe33:4455", Parse::kOk, "2001:db8:1:2:211:22ff:fe33:4455"},
        {"2001:db8:1:2 fe80::211:22ff:fe33:4455", Parse::kOk, "2001:db8:1:2211:22ff:fe33:4455"},
        {"2001:db8:1:2:: fe81::211:22ff:fe33:4455", Parse::kMissing, ""},
        {"2001:db8:1:2:: fe80:", Parse::kMissing, ""},
        {":: fe80::", Parse::kMissing, ""},
        {long43 + " fe80::211:22ff:fe33:4455", Parse::kTooLong, ""},
        {long43 + "0 fe80::1", Parse::kTooLong, ""},
    };
    for (const auto &c : cases) {
        char out[44];
        EXPECT_EQ(lanhost_radvd_address(c.text.data(), c.text.size(), out), c.want) << c.text;
        EXPECT_STREQ(out, c.address) << c.text;
    }
    EXPECT_EQ(prefixEventDispatch(""), -1);
    EXPECT_EQ(prefixEventDispatch("2001:db8:1:2:: 2001:db8::1"), 0) << "no link-local text: nothing sent";
}
