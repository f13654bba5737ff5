// The tracker's packet-socket filters against real frames on a real bridge.
#include <gtest/gtest.h>
#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <netinet/icmp6.h>
#include <netinet/if_ether.h>
#include <netinet/ip6.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "lanhost.h"
#include "lanhost_sockets.h"
#include "shell.h"

using zntest::eventually;
using zntest::sh;

namespace {

using Frame = std::vector<uint8_t>;

// Everything that arrives on fd within the time given.
std::vector<Frame> collect(int fd, int ms) {
    std::vector<Frame> frames;
    pollfd p{fd, POLLIN, 0};
    while (poll(&p, 1, ms) > 0) {
        Frame f(2048);
        ssize_t n = recv(fd, f.data(), f.size(), 0);
        if (n <= 0)
            break;
        f.resize(size_t(n));
        frames.push_back(f);
    }
    return frames;
}

// An unfiltered view of the bridge, to show what the filters held back.
int raw_socket(uint16_t proto) {
    int fd = socket(AF_PACKET, SOCK_RAW, htons(proto));
    sockaddr_ll sll{};
    sll.sll_family = AF_PACKET;
    sll.sll_protocol = htons(proto);
    sll.sll_ifindex = int(if_nametoindex("br0"));
    bind(fd, reinterpret_cast<sockaddr *>(&sll), sizeof sll);
    return fd;
}

bool group_addressed(const Frame &f) { return f[0] & 1; }

uint16_t arp_opcode(const Frame &f) { return uint16_t(f[ETHER_HDR_LEN + 6] << 8 | f[ETHER_HDR_LEN + 7]); }

uint8_t icmp6_type(const Frame &f) {
    return f.size() > ETHER_HDR_LEN + sizeof(ip6_hdr) && f[ETHER_HDR_LEN + 6] == IPPROTO_ICMPV6
               ? f[ETHER_HDR_LEN + sizeof(ip6_hdr)]
               : 0;
}

} // namespace

TEST(LanhostFilters, PassOnlyUnicastArpAndNeighbourAdvertisements) {
    ASSERT_EQ(sh("vgw lan up && vgw host add pc eth1 02:00:00:00:10:01 192.168.1.10/24").status, 0);
    int arp = -1, nd = -1;
    ASSERT_EQ(zn_event_arpPing_raw_sock_init(&arp), 0);
    ASSERT_EQ(zn_event_icmpv6_raw_sock_init(&nd), 0);
    int raw_arp = raw_socket(ETHERTYPE_ARP), raw_v6 = raw_socket(ETHERTYPE_IPV6);

    // Packet sockets of one protocol see frames that come in. A host asking
    // by broadcast is held back; its answer to the gateway passes.
    ASSERT_EQ(sh("vgw host exec pc arping -c 1 -w 2 192.168.1.1").status, 0);
    std::vector<Frame> seen = collect(raw_arp, 300), passed = collect(arp, 300);
    ASSERT_FALSE(seen.empty());
    for (const Frame &f : seen)
        EXPECT_TRUE(group_addressed(f) && arp_opcode(f) == ARPOP_REQUEST);
    EXPECT_TRUE(passed.empty());
    ASSERT_EQ(sh("arping -I br0 -c 1 -w 2 192.168.1.10").status, 0);
    passed = collect(arp, 300);
    ASSERT_EQ(passed.size(), 1u);
    EXPECT_FALSE(group_addressed(passed[0]));
    EXPECT_EQ(arp_opcode(passed[0]), ARPOP_REPLY);

    // Likewise a host's solicitation is held back and its advertisement passes.
    ASSERT_TRUE(eventually([] { return sh("vgw host exec pc ping -6 -c 1 -W 1 fe80::1%eth0").status == 0; }));
    seen = collect(raw_v6, 300);
    passed = collect(nd, 300);
    bool solicitation = false;
    for (const Frame &f : seen)
        solicitation |= icmp6_type(f) == ND_NEIGHBOR_SOLICIT;
    EXPECT_TRUE(solicitation) << "no solicitation on the wire to filter";
    EXPECT_TRUE(passed.empty());
    sh("ip -6 neigh flush dev br0");
    ASSERT_EQ(sh("ping -6 -c 1 -W 2 fe80::ff:fe00:1001%br0").status, 0);
    passed = collect(nd, 300);
    ASSERT_FALSE(passed.empty());
    for (const Frame &f : passed)
        EXPECT_EQ(icmp6_type(f), ND_NEIGHBOR_ADVERT);
    for (int fd : {arp, nd, raw_arp, raw_v6})
        close(fd);
}
