// The tracker's packet-socket filters against real frames on a real bridge.
#include <poll.h>

#include <set>

#include "tracker.h"

using namespace zntest;

namespace {

const std::string kGateway = "020000000001", kPc = "020000001001";

// From host pc at 192.168.1.10 to the gateway's address, its last byte the tag.
std::string arp(const std::string &to, int op, int tag) {
    return to + kPc + "0806000108000604000" + std::to_string(op) + kPc + "c0a8010a000000000000c0a8010" +
           std::to_string(tag);
}

// An ICMPv6 message of type (hexadecimal) from pc's link-local address to fe80::1, its last byte the tag.
std::string icmp6(const std::string &to, const char *type, int tag) {
    return to + kPc + "86dd6000000000083aff" + "fe800000000000000000000000001001" + "fe800000000000000000000000000001" +
           type + "0000000000000" + std::to_string(tag);
}

// The tags of the frames above that fd passes, up to the one tagged 9; the
// host's own frames are longer.
std::set<int> passed(int fd) {
    std::set<int> tags;
    uint8_t f[2048];
    pollfd p{fd, POLLIN, 0};
    while (!tags.count(9) && poll(&p, 1, 10000) == 1) {
        const ssize_t n = recv(fd, f, sizeof f, 0);
        if ((n == 42 || n == 62) && memcmp(f + 6, "\x02\0\0\0\x10\x01", 6) == 0)
            tags.insert(f[n - 1]);
    }
    return tags;
}

} // namespace

class Filters : public TrackerTest {};

TEST_F(Filters, PassOnlyUnicastArpAndNeighbourAdvertisements) {
    ASSERT_TRUE(run("vgw host add pc eth1 02:00:00:00:10:01"));
    int arpSocket = -1, ndSocket = -1;
    ASSERT_EQ(zn_event_arpPing_raw_sock_init(&arpSocket), 0);
    ASSERT_EQ(zn_event_icmpv6_raw_sock_init(&ndSocket), 0);
    const std::string frames[] = {
        arp("ffffffffffff", 1, 1),      // broadcast ARP request: held back
        arp(kGateway, 2, 2),            // unicast ARP reply
        arp(kGateway, 1, 3),            // unicast ARP request
        icmp6("3333ff000001", "87", 4), // multicast solicitation: held back
        icmp6(kGateway, "88", 5),       // unicast advertisement
        icmp6("333300000001", "88", 6), // multicast advertisement
        icmp6(kGateway, "80", 7),       // echo request: held back
        arp(kGateway, 2, 9),            // the last of each socket
        icmp6(kGateway, "88", 9),
    };
    std::string all;
    for (const std::string &f : frames)
        all += " " + f;
    ASSERT_TRUE(run("vgw host exec pc python3 " ZN_SOURCE_DIR "/tests/lanhost/send.py frame eth0" + all));
    EXPECT_EQ(passed(arpSocket), (std::set<int>{2, 3, 9}));
    EXPECT_EQ(passed(ndSocket), (std::set<int>{5, 6, 9}));
    close(arpSocket);
    close(ndSocket);
}
