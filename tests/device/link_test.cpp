// The walk of a link socket's datagram and the split of the WAN file's line.
#include <gtest/gtest.h>
#include <linux/rtnetlink.h>
#include <net/if.h>

#include <cstring>
#include <string>

#include "link_events.h"

using namespace std::string_literals;

namespace {

// A routing message: header, interface info, then a name attribute per name.
std::string message(uint16_t type, uint32_t flags, std::initializer_list<std::string> names) {
    std::string m(sizeof(nlmsghdr) + sizeof(ifinfomsg), '\0');
    for (const std::string &name : names) {
        const rtattr a{uint16_t(sizeof a + name.size()), IFLA_IFNAME};
        m.append(reinterpret_cast<const char *>(&a), sizeof a).append(name);
        m.resize(RTA_ALIGN(m.size()));
    }
    const nlmsghdr h{uint32_t(m.size()), type, 0, 0, 0};
    memcpy(&m[0], &h, sizeof h);
    memcpy(&m[sizeof h + offsetof(ifinfomsg, ifi_flags)], &flags, sizeof flags);
    return m;
}

// s with a length field at `at` set, in host order and the field's own width.
template <typename T> std::string with_len(std::string s, size_t at, T len) {
    return s.replace(at, sizeof len, reinterpret_cast<char *>(&len), sizeof len);
}

std::string seen;

void record(const uint8_t *msg, size_t len) {
    LinkMsg m;
    link_parse(msg, len, &m);
    seen += std::to_string(m.type) + " " + (m.hasName ? m.name : "-") + ((m.flags & IFF_RUNNING) ? " up;" : " down;");
}

} // namespace

TEST(LinkWalk, MessagesOfADatagram) {
    const std::string eth1 = message(RTM_NEWLINK, IFF_UP | IFF_RUNNING, {std::string("eth1", 5)}),
                      ra = message(RTM_DELLINK, IFF_UP, {"ra0.0"});
    const struct { const char *what; std::string datagram, seen; } cases[] = {
        {"two link messages and an address one", eth1 + message(RTM_NEWADDR, 0, {}) + ra, "16 eth1 up;17 ra0.0 down;"},
        {"15 bytes", eth1.substr(0, 15), ""},
        {"a length of 12 ends the walk", with_len(eth1, 0, uint32_t(12)) + ra, ""},
        {"a length beyond the end ends the walk", eth1 + with_len(ra, 0, uint32_t(ra.size() + 4)), "16 eth1 up;"},
        {"an attribute of length 2 ends the attributes", with_len(ra, 32, uint16_t(2)), "17 - down;"},
        {"the last of two names, without their NULs", message(RTM_NEWLINK, 0, {"eth1", "lan2"}), "16 lan2 down;"},
    };
    for (const auto &c : cases) {
        seen.clear();
        link_walk(reinterpret_cast<const uint8_t *>(c.datagram.data()), c.datagram.size(), record);
        EXPECT_EQ(seen, c.seen) << c.what;
    }
}

TEST(WanPhysicalType, LineSplitAtTheEqualsSign) {
    const struct { std::string line; const char *type, *ifname; int found; } cases[] = {
        {"ETHER=eth4\n", "ETHER", "eth4", 2}, {"GPON=eth4", "GPON", "eth4", 2}, {"ETHER=eth4=x\n", "ETHER", "eth4", 2},
        {"ETHER\n", "ETHER\n", "", 1},        {"=eth4\n", "eth4\n", "", 1},     {"ETHER=\n", "ETHER", "", 2},
        {"", "", "", 0}, {"ETHERNET-OPTICAL=abcdefghijklmnopq\n", "ETHERNET-OPTICA", "abcdefghijklmno", 2},
    };
    for (const auto &c : cases) {
        char type[kIfNameRoom] = "stale", ifname[kIfNameRoom] = "stale";
        EXPECT_EQ(link_wan_split(c.line.c_str(), type, ifname), c.found) << c.line;
        EXPECT_EQ(type + "|"s + ifname, c.type + "|"s + c.ifname) << c.line;
    }
}
