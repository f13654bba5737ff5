// IPv6 neighbour discovery of the tracker: the advertisement parser and the
// dhcp6s and radvd report parsers. The gateway's own address from the store
// is the source of the solicitations in ipv6_system_test.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cstring>
#include <tuple>
#include <vector>

#include "lanhost_icmp6.h"
#include "lanhost_prefix.h"

namespace {

using Frame = std::vector<uint8_t>;
constexpr uint8_t kHostMac[6] = {0x02, 0, 0, 0, 0x10, 0x01};
constexpr const char *kLinkLocal = "fe80::ff:fe00:1001";

// A neighbour advertisement of a host as the packet socket reads it, 86 bytes.
Frame advert() {
    Frame f(86, 0);
    f[0] = 0x02, f[5] = 0x01, f[12] = 0x86, f[13] = 0xDD, f[14] = 0x60, f[19] = 32, f[20] = 58, f[21] = 255;
    memcpy(&f[6], kHostMac, 6);
    f[54] = 136, f[58] = 0x40, f[78] = 2, f[79] = 1;
    inet_pton(AF_INET6, kLinkLocal, &f[62]);
    memcpy(&f[80], kHostMac, 6);
    return f;
}

} // namespace

TEST(Ipv6Frames, AdvertisementFramesAreCheckedFieldByField) {
    const std::tuple<const char *, std::function<void(Frame &)>, Parse> cases[] = {
        {"valid", [](Frame &) {}, Parse::kOk},
        {"29 bytes", [](Frame &f) { f.resize(29); }, Parse::kTooShort},
        {"30 bytes, no type", [](Frame &f) { f.resize(30); }, Parse::kWrongType},
        {"a solicitation", [](Frame &f) { f[54] = 135; }, Parse::kWrongType},
        {"source link-layer option first", [](Frame &f) { f[78] = 1; }, Parse::kMissing},
        {"option cut short", [](Frame &f) { f.resize(85); }, Parse::kMissing},
    };
    for (const auto &[what, change, want] : cases) {
        Frame f = advert();
        change(f);
        NeighborAdvert na;
        EXPECT_EQ(lanhost_na_frame_parse(f.data(), f.size(), &na), want) << what;
        EXPECT_TRUE(want != Parse::kOk || (!memcmp(na.target, &f[62], 16) && !memcmp(na.mac, kHostMac, 6)));
    }
}

TEST(Ipv6Reports, Dhcp6sReportsAreBoundedFieldByField) {
    const std::string duid63(63, 'd'), addr43 = "2001:db8:1:2:3:4:" + std::string(26, '5');
    const std::tuple<std::string, bool, std::string, std::string, int64_t> cases[] = {
        {"000100012ac0ffee 2001:db8:1::10 3600", true, "000100012ac0ffee", "2001:db8:1::10", 3600},
        {" \tduid\n2001:db8:1::10\t-1\n", true, "duid", "2001:db8:1::10", -1},
        {std::string("duid 2001:db8::1\0 3600", 22), true, "duid", "2001:db8::1", 0},
        {"duid", true, "duid", "", 0},
        {duid63 + " " + addr43 + " 1", true, duid63, addr43, 1},
        {duid63 + "d ::1 1", false, "", "", 0},
        {"duid " + addr43 + "5 1", false, "", "", 0},
        {"duid ::1 " + std::string(24, '9'), false, "", "", 0},
    };
    for (const auto &[text, fits, duid, address, leaseTime] : cases) {
        Dhcp6sLease lease;
        EXPECT_EQ(lanhost_dhcp6s_lease_parse(text.data(), text.size(), &lease) == Parse::kOk, fits) << text;
        EXPECT_EQ(lease.duid + std::string("|") + lease.address, duid + "|" + address) << text;
        EXPECT_EQ(lease.leaseTime, leaseTime) << text;
    }
}

TEST(Ipv6Reports, RadvdReportsJoinPrefixAndInterfaceIdentifierAsText) {
    const std::string long43 = "2001:db8:1:2:" + std::string(30, '0');
    const std::tuple<std::string, Parse, const char *> cases[] = {
        {"2001:db8:1:2:: fe80::211:22ff:fe33:4455", Parse::kOk, "2001:db8:1:2:211:22ff:fe33:4455"},
        {"2001:db8:1:2 fe80::211:22ff:fe33:4455", Parse::kOk, "2001:db8:1:2211:22ff:fe33:4455"},
        {"2001:db8:1:2:: fe81::211:22ff:fe33:4455", Parse::kMissing, ""},
        {"2001:db8:1:2:: fe80:", Parse::kMissing, ""},
        {":: fe80::", Parse::kMissing, ""},
        {long43 + " fe80::211:22ff:fe33:4455", Parse::kTooLong, ""},
        {long43 + "0 fe80::1", Parse::kTooLong, ""},
    };
    for (const auto &[text, want, address] : cases) {
        char out[44];
        EXPECT_EQ(lanhost_radvd_address(text.data(), text.size(), out), want) << text;
        EXPECT_STREQ(out, address) << text;
    }
}
