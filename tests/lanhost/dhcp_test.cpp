// The lease socket's reader and the DHCP option parser, changed one field
// at a time.

#include "lanhost_dhcp.h"
#include "lanhost_useragent.h"
#include "tracker.h"

using namespace zntest;

namespace {

constexpr const char *kMac = "02:00:00:ab:10:01";
using Bytes = std::vector<uint8_t>;

} // namespace

class Lease : public TrackerTest {};

// What a socket's reader makes of one datagram.
void read(const void *datagram, size_t len, event_callback_fn reader) {
    int pair[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM, 0, pair), 0);
    send(pair[1], datagram, len, 0);
    reader(pair[0], EV_READ, nullptr);
    close(pair[0]), close(pair[1]);
}

// What the host's record then holds: "active|source|address|name|lease". Only
// an address beginning with "*" is refused; an empty third field moves the
// name into its place, and no address text reaches a shell.
TEST_F(Lease, Ipv4LeaseFillsInTheKnownHost) {
    const std::string m = kMac, none = "0||||0";
    const std::tuple<std::string, std::string> cases[] = {
        {m + ",3600,192.168.1.10,laptop", "1|DHCP|192.168.1.10|laptop|3600"},
        {m + ",soon,192.168.1.10,laptop", "1|DHCP|192.168.1.10|laptop|0"},
        {m + ",3600,192.168.1.10", "1|DHCP|192.168.1.10|unknown|3600"},
        {m + ",3600,192.168.1.10,a", "1|DHCP|192.168.1.10|unknown|3600"},
        {m + ",3600,192.168.1.10,*", "1|DHCP|192.168.1.10|unknown|3600"},
        {m + ",3600,192.168.1.10,(null)", "1|DHCP|192.168.1.10|unknown|3600"},
        {m + ",3600,192.168.1.10,ab", "1|DHCP|192.168.1.10|ab|3600"},
        {m + ",3600,192.168.1.10," + std::string(40, 'n'), "1|DHCP|192.168.1.10|" + std::string(31, 'n') + "|3600"},
        {"02:00:00:AB:10:01,3600,192.168.1.10,laptop", "1|DHCP|192.168.1.10|laptop|3600"},
        {"02:00:00:ab:10:02,3600,192.168.1.10,laptop", none},
        {m + ",3600,*,laptop", none},
        {m + ",3600,*1.2.3.4,laptop", none},
        {m + ",3600", none},
        {m + ",3600,,laptop", "1|DHCP|laptop|unknown|3600"},
        {m + ",3600,$(touch /tmp/x),pc", "1|DHCP|$(touch /tmp/x)|pc|3600"},
    };
    for (const auto &[text, want] : cases) {
        lhost *h = add_host(kMac, "eth1");
        h->active = 0;
        read(text.data(), text.size(), zn_event_lanhost_dhcpSockRead_cb);
        EXPECT_EQ(joined({std::to_string(h->active), h->ipAddrSource, h->ipAddr, h->HostName,
                          std::to_string(h->dhcpLeasetime)}),
                  want)
            << text;
        EXPECT_EQ(joined({stored(h, "IPAddress"), stored(h, "HostName")}), joined({h->ipAddr, h->HostName})) << text;
        EXPECT_NE(access("/tmp/x", F_OK), 0) << text;
        TearDown();
    }
}

TEST_F(Lease, Ipv6LeaseGoesToTheOnlineHostOfItsDuid) {
    const std::string host = "InternetGatewayDevice.LANDevice.1.Hosts.Host.200", set = "znsUtil -s " + host + " ";
    ASSERT_TRUE(
        run("znsUtil -a " + host + " && " + set + "X_ZN_DUID string 00:01:00:01:2a:bb:cc:dd:02:00:00:00:10:01"));
    const std::tuple<const char *, const char *, const char *> steps[] = {
        {"00:01:00:01:2A:BB:CC:DD:02:00:00:00:10:01,1800,2001:db8::10,x", "1", "1800"},
        {"00:01:00:01:2a:bb:cc:dd:02:00:00:00:10:02,900", "1", "1800"},
        {"00:01:00:01:2a:bb:cc:dd:02:00:00:00:10:01,900", "0", "1800"},
    };
    for (const auto &[text, ipv6Active, lease] : steps) {
        ASSERT_TRUE(run(set + "ipv6Active bool " + ipv6Active));
        read(text, strlen(text), zn_event_lanhost_dhcpSockRead_cb);
        EXPECT_EQ(hosts_table("Host")[200]["X_ZN_V6LeaseTimeRemaining"], lease) << text;
    }
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
    // what, options, result, requested address, host name (nullptr: no usable name)
    const std::tuple<const char *, Bytes, int, const char *, const char *> cases[] = {
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
    for (const auto &[what, opts, result, wantIp, wantName] : cases) {
        DhcpRequestSnoop req;
        ASSERT_EQ(lanhost_dhcp_request_parse(opts.data(), opts.size(), &req) == Parse::kOk ? 0 : -1, result) << what;
        if (result < 0)
            continue;
        EXPECT_STREQ(req.macAddr, "02:00:00:00:30:ab") << what;
        EXPECT_STREQ(req.requestedIp, wantIp) << what;
        EXPECT_EQ(req.hasHostName ? req.hostName : "(none)", std::string(wantName ? wantName : "(none)")) << what;
    }
}

// The last test of the binary: without the gb2312 converter a name report
// leaves no name, and what was converted before the fault counts.
TEST(DhcpOptionReport, WithoutTheConverterANameReportLeavesNoName) {
    ASSERT_TRUE(run("rm -rf /usr/lib/*/gconv /usr/lib/gconv"));
    dhcpRequestEntry entry{nullptr, "02:00:00:00:60:01", "", "old", ""};
    const std::string report = "bridge_dhcp_option,ip=192.168.1.60,name=laptop";
    lanhost_dhcp_option_update(&entry, report.data(), report.size());
    EXPECT_EQ(joined({entry.requestedIp, entry.hostName}), "192.168.1.60|");
}
