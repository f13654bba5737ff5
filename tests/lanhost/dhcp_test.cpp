// The lease message and DHCP option parsers, changed one field at a time,
// and what the two DHCP sockets' readers make of a datagram.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "agent_log.h"
#include "lanhost.h"
#include "lanhost_dhcp.h"
#include "shell.h"

using zntest::sh;

namespace {

constexpr const char *kMac = "02:00:00:ab:10:01";
constexpr const char *kHostPath = "InternetGatewayDevice.LANDevice.1.Hosts.Host.200";

using Bytes = std::vector<uint8_t>;

// A datagram pair: what is sent on one end is read by a callback on the other.
struct DgramPair {
    int fd[2];
    DgramPair() { socketpair(AF_UNIX, SOCK_DGRAM, 0, fd); }
    ~DgramPair() {
        close(fd[0]);
        close(fd[1]);
    }
    void send(const void *data, size_t len) const { ::send(fd[1], data, len, 0); }
};

std::string get(const std::string &param) {
    std::string out = sh(std::string("znsUtil -g ") + kHostPath + " " + param).out;
    return out.substr(0, out.find('\n'));
}

} // namespace

TEST(LeaseMessage, SplitsAtRunsOfCommas) {
    const std::string lease = std::string(kMac) + ",3600,192.168.1.10,laptop";
    constexpr size_t kWhole = SIZE_MAX;
    struct Case {
        std::string text;
        size_t len;
        std::vector<std::string> fields;
    } cases[] = {
        {lease, kWhole, {kMac, "3600", "192.168.1.10", "laptop"}},
        {lease + ",more", kWhole, {kMac, "3600", "192.168.1.10", "laptop"}},
        {",," + std::string(kMac) + ",,3600,,,192.168.1.10,laptop,", kWhole, {kMac, "3600", "192.168.1.10", "laptop"}},
        {std::string(kMac) + ",3600,,laptop", kWhole, {kMac, "3600", "laptop"}},
        {kMac, kWhole, {kMac}},
        {lease, 22, {kMac, "3600"}},
        {std::string(kMac) + std::string(",3600\0,x", 8), kWhole, {kMac, "3600"}},
        {",,,", kWhole, {}},
        {std::string(300, 'a'), kWhole, {std::string(kLeaseMessageMax, 'a')}},
    };
    for (const Case &c : cases) {
        LeaseMessage msg;
        lanhost_lease_message_parse(c.text.data(), c.len == kWhole ? c.text.size() : c.len, &msg);
        ASSERT_EQ(msg.count, c.fields.size()) << c.text;
        for (size_t i = 0; i < msg.count; i++)
            EXPECT_EQ(msg.field[i], c.fields[i]) << c.text;
    }
}

TEST(LeaseMessage, Ipv4LeaseFillsInTheKnownHost) {
    storeHandle = zns_xmlShmInit();
    ASSERT_NE(storeHandle, nullptr);
    const std::string m = kMac;
    struct Case {
        std::string text;
        bool taken;
        const char *name;
        int64_t lease;
    } cases[] = {
        {m + ",3600,192.168.1.10,laptop", true, "laptop", 3600},
        {m + ",soon,192.168.1.10,laptop", true, "laptop", 0},
        {m + ",3600,192.168.1.10", true, "unknown", 3600},
        {m + ",3600,192.168.1.10,a", true, "unknown", 3600},
        {m + ",3600,192.168.1.10,*", true, "unknown", 3600},
        {m + ",3600,192.168.1.10,(null)", true, "unknown", 3600},
        {m + ",3600,192.168.1.10,ab", true, "ab", 3600},
        {m + ",3600,192.168.1.10," + std::string(40, 'n'), true, "nnnnnnnnnnnnnnnnnnnnnnnnnnnnnnn", 3600},
        {"02:00:00:AB:10:01,3600,192.168.1.10,laptop", true, "laptop", 3600},
        {"02:00:00:ab:10:02,3600,192.168.1.10,laptop", false, "", 0},
        {m + ",3600,*,laptop", false, "", 0},
        {m + ",3600", false, "", 0},
    };
    for (const Case &c : cases) {
        lhost *h = list_init_add_lhost();
        ASSERT_NE(h, nullptr);
        lanhost_copy_text(h->macAddr, "02:00:00:AB:10:01");
        macStr_to_bytes(h->mac, h->macAddr);
        lanhost_copy_text(h->brPortName, "eth1");
        LeaseMessage msg;
        lanhost_lease_message_parse(c.text.data(), c.text.size(), &msg);
        EXPECT_EQ(zn_event_lanhost_update_dhcp_LeaseTime(msg), 0);
        EXPECT_EQ(h->active, c.taken ? 1 : 0) << c.text;
        EXPECT_STREQ(h->ipAddrSource, c.taken ? "DHCP" : "") << c.text;
        EXPECT_STREQ(h->ipAddr, c.taken ? "192.168.1.10" : "") << c.text;
        EXPECT_STREQ(h->HostName, c.name) << c.text;
        EXPECT_EQ(h->dhcpLeasetime, c.lease) << c.text;
        list_del_lhost(h);
    }
    zns_xmlShmDeInit(&storeHandle);
}

TEST(LeaseMessage, Ipv6LeaseGoesToTheOnlineHostOfItsDuid) {
    storeHandle = zns_xmlShmInit();
    ASSERT_NE(storeHandle, nullptr);
    const std::string set = std::string("znsUtil -s ") + kHostPath + " ";
    ASSERT_EQ(sh(std::string("znsUtil -a ") + kHostPath + " && " + set +
                 "X_ZN_DUID string 00:01:00:01:2a:bb:cc:dd:02:00:00:00:10:01 && " + set + "ipv6Active bool 1")
                  .status,
              0);
    DgramPair pair;
    const struct {
        const char *text;
        const char *ipv6Active;
        const char *lease;
    } steps[] = {
        {"00:01:00:01:2A:BB:CC:DD:02:00:00:00:10:01,1800,2001:db8::10,x", "1", "1800"},
        {"00:01:00:01:2a:bb:cc:dd:02:00:00:00:10:02,900", "1", "1800"},
        {"00:01:00:01:2a:bb:cc:dd:02:00:00:00:10:01,900", "0", "1800"},
    };
    for (const auto &s : steps) {
        ASSERT_EQ(sh(set + "ipv6Active bool " + s.ipv6Active).status, 0);
        pair.send(s.text, strlen(s.text));
        zn_event_lanhost_dhcpSockRead_cb(pair.fd[0], EV_READ, nullptr);
        EXPECT_EQ(get("X_ZN_V6LeaseTimeRemaining"), s.lease) << s.text;
    }
    sh(std::string("znsUtil -d ") + kHostPath);
    zns_xmlShmDeInit(&storeHandle);
}

TEST(DhcpOptions, OnlyWholeRequestsWithAClientIdentifierGoOn) {
    const Bytes type = {53, 1, 3}, id = {61, 7, 1, 0x02, 0, 0, 0, 0x30, 0xAB}, ip = {50, 4, 192, 168, 1, 51},
                name = {12, 5, 'p', 'h', 'o', 'n', 'e'}, end = {255};
    auto cat = [](std::initializer_list<Bytes> parts) {
        Bytes out;
        for (const Bytes &p : parts)
            out.insert(out.end(), p.begin(), p.end());
        return out;
    };
    Bytes name31 = {12, 31}, name32 = {12, 32};
    name31.resize(33, 'n');
    name32.resize(34, 'n');
    struct Case {
        const char *what;
        Bytes opts;
        int result;
        const char *ip;
        const char *name; // nullptr: no usable name
    } cases[] = {
        {"request", cat({type, id, ip, name, end}), 0, "192.168.1.51", "phone"},
        {"discover", cat({{53, 1, 1}, id, ip, name, end}), -1, "", nullptr},
        {"no type", cat({id, ip, name, end}), 0, "192.168.1.51", "phone"},
        {"type of 2 bytes", cat({{53, 2, 3, 3}, id, ip, name, end}), -1, "", nullptr},
        {"first type counts", cat({type, {53, 1, 1}, id, ip, name, end}), 0, "192.168.1.51", "phone"},
        {"no client id", cat({type, ip, name, end}), -1, "", nullptr},
        {"client id of 6", cat({type, {61, 6, 0x02, 0, 0, 0, 0x30, 0xAB}, ip, name, end}), -1, "", nullptr},
        {"no address", cat({type, id, name, end}), 0, "", "phone"},
        {"address of 3", cat({type, id, {50, 3, 192, 168, 1}, name, end}), -1, "", nullptr},
        {"no name", cat({type, id, ip, end}), 0, "192.168.1.51", nullptr},
        {"name of 31", cat({type, id, ip, name31, end}), 0, "192.168.1.51", "nnnnnnnnnnnnnnnnnnnnnnnnnnnnnnn"},
        {"name of 32", cat({type, id, ip, name32, end}), 0, "192.168.1.51", nullptr},
        {"empty name", cat({type, id, ip, {12, 0}, end}), 0, "192.168.1.51", ""},
        {"name of NULs", cat({type, id, ip, {12, 2, 0, 'x'}, end}), 0, "192.168.1.51", ""},
        {"pads", cat({{0, 0}, type, {0}, id, ip, name, end}), 0, "192.168.1.51", "phone"},
        {"end before address", cat({type, id, end, ip, name}), 0, "", nullptr},
        {"no end", cat({type, id, ip, name}), 0, "192.168.1.51", "phone"},
        {"name past the end", cat({type, id, ip, {12, 9, 'p'}}), 0, "192.168.1.51", nullptr},
        {"client id past the end", cat({type, {61, 7, 1, 0x02, 0}}), -1, "", nullptr},
        {"cut after a code", cat({type, id, {50}}), 0, "", nullptr},
        {"nothing", {}, -1, "", nullptr},
    };
    for (const Case &c : cases) {
        DhcpRequestSnoop req;
        ASSERT_EQ(lanhost_dhcp_request_parse(c.opts.data(), c.opts.size(), &req) == Parse::kOk ? 0 : -1, c.result)
            << c.what;
        if (c.result < 0)
            continue;
        EXPECT_STREQ(req.macAddr, "02:00:00:00:30:ab") << c.what;
        EXPECT_STREQ(req.requestedIp, c.ip) << c.what;
        EXPECT_EQ(req.hasHostName, c.name != nullptr) << c.what;
        if (c.name) {
            EXPECT_STREQ(req.hostName, c.name) << c.what;
        }
    }
}

TEST(DhcpOptions, DatagramsOfTheFixedHeaderAloneAreReadErrors) {
    DgramPair pair;
    zn_event_lanhost_log_levels[0] = 4;
    Bytes datagram(kDhcpOptionsAt, 0);
    for (bool withOption : {false, true}) {
        if (withOption)
            datagram.push_back(255);
        pair.send(datagram.data(), datagram.size());
        testing::internal::CaptureStdout();
        zn_event_lanhost_bridge_dhcpSockRead_cb(pair.fd[0], EV_READ, nullptr);
        const std::string out = testing::internal::GetCapturedStdout();
        EXPECT_EQ(out.find("read error") != std::string::npos, !withOption) << out;
        EXPECT_EQ(out.find("op: 0") != std::string::npos, withOption) << out;
    }
    zn_event_lanhost_log_levels[0] = 0;
}
