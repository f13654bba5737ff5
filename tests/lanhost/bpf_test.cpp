// The tracker's packet-socket filters against real frames on a real bridge,
// and the same programs on the same bytes through a socket pair on any CPU.
#include <poll.h>

#include <set>

#include "lanhost_bpf.h"
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

const std::string kFrames[] = {
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
const std::set<int> kArpPassed = {2, 3, 9}, kAdvertPassed = {5, 6, 9};

} // namespace

class Filters : public TrackerTest {};

TEST_F(Filters, PassOnlyUnicastArpAndNeighbourAdvertisements) {
    ASSERT_TRUE(run("vgw host add pc eth1 02:00:00:00:10:01"));
    int arpSocket = -1, ndSocket = -1;
    ASSERT_EQ(zn_event_arpPing_raw_sock_init(&arpSocket), 0);
    ASSERT_EQ(zn_event_icmpv6_raw_sock_init(&ndSocket), 0);
    std::string all;
    for (const std::string &f : kFrames)
        all += " " + f;
    ASSERT_TRUE(run("vgw host exec pc python3 " ZN_SOURCE_DIR "/tools/vgw/send.py frame eth0" + all));
    EXPECT_EQ(passed(arpSocket), kArpPassed);
    EXPECT_EQ(passed(ndSocket), kAdvertPassed);
    close(arpSocket);
    close(ndSocket);
}

// The kernel runs a socket's program on a datagram's bytes as given; its loads
// read them in wire order whatever the CPU.
TEST(FilterPrograms, PassTheSameFramesThroughASocketPair) {
    using lanhost_bpf::kArp, lanhost_bpf::kNeighborAdvert;
    const std::tuple<const sock_filter *, size_t, std::set<int>> programs[] = {
        {kArp, std::size(kArp), kArpPassed}, {kNeighborAdvert, std::size(kNeighborAdvert), kAdvertPassed}};
    for (const auto &[program, length, passes] : programs) {
        int fd[2];
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM, 0, fd), 0);
        const sock_fprog prog{uint16_t(length), const_cast<sock_filter *>(program)};
        ASSERT_EQ(setsockopt(fd[1], SOL_SOCKET, SO_ATTACH_FILTER, &prog, sizeof prog), 0);
        for (const std::string &f : kFrames) {
            std::vector<uint8_t> bytes;
            for (size_t i = 0; i < f.size(); i += 2)
                bytes.push_back(uint8_t(std::stoul(f.substr(i, 2), nullptr, 16)));
            send(fd[0], bytes.data(), bytes.size(), 0);
        }
        EXPECT_EQ(passed(fd[1]), passes);
        close(fd[0]);
        close(fd[1]);
    }
}
