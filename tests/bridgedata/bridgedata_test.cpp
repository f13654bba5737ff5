// The bridge data worker in a process of its own under the protocol-29
// stand-in: reports reach the bridge data node of the store. The walk of one
// report also runs alone, on every target.
#include <gtest/gtest.h>
#include <linux/netlink.h>
#include <pthread.h>

#include <cstring>
#include <string>

#include "bridgedata.h"
#include "shell.h"

using zntest::file_text;
using zntest::sh;

// A report of the interface with a one-byte session id, other fields zero,
// as hex for the raw command.
static std::string report_hex(const char *ifname, uint8_t session) {
    uint8_t m[56] = {56, 0, 0, 0, 3};
    memcpy(m + 16, ifname, strlen(ifname));
    m[45] = session;
    std::string hex;
    for (uint8_t b : m)
        hex += "0123456789abcdef"[b >> 4], hex += "0123456789abcdef"[b & 15];
    return hex;
}

TEST(BridgeData, ReportsOfADatagramReachTheNodeUpToAnError) {
    const char *out = "/tmp/bridgedata.out";
    pid_t worker = fork();
    if (worker == 0) {
        freopen(out, "w", stdout);
        pthread_t t;
        pthread_create(&t, nullptr, bridgedataThread, nullptr);
        pause();
    }
    ASSERT_TRUE(zntest::eventually([&] { return sh("znkernel log").out.find("connect pid=" + std::to_string(worker)) != std::string::npos; }));
    const std::string p = "InternetGatewayDevice.X_ZN_BridgeData.";
    const struct { std::string args, node, printed; } rows[] = {
        {"report br0 00:0a:0b:0c:0d:0e 02:00:00:00:00:01 0x1234 192.168.1.1 10.0.0.1",
         p + "InterfaceName=br0\n" + p + "sessionID=4660\n" + p + "smac=02:00:00:00:00:01\n" + p +
             "dmac=00:0a:0b:0c:0d:0e\n" + p + "ip=192.168.1.1\n" + p + "dns=10.0.0.1\n",
         "brigedata_update_znsnode dev=br0, sessionID=4660 \n    smac=02:00:00:00:00:01 \n"
         "    dmac=00:0a:0b:0c:0d:0e \n    ip=192.168.1.1 \n    dns=10.0.0.1 \n"},
        {"raw " + report_hex("eth3", 3) + "1000000002000000" "0000000000000000" + report_hex("lost", 9),
         p + "InterfaceName=eth3\n" + p + "sessionID=3\n", "dev=eth3, sessionID=3 \n"},
        {"report eth1 02:00:00:00:00:01 02:00:00:00:00:02 1 1.1.1.1 1.1.1.1 eth2 02:00:00:00:00:03 02:00:00:00:00:04 2 "
         "2.2.2.2 2.2.2.2",
         p + "InterfaceName=eth2\n" + p + "sessionID=2\n", "dev=eth1, sessionID=1 \n"},
    };
    for (const auto &row : rows) {
        ASSERT_EQ(sh("znkernel bridgedata " + row.args).status, 0) << row.args;
        std::string node;
        EXPECT_TRUE(zntest::eventually([&] {
            return (node = sh("znsUtil -l InternetGatewayDevice.X_ZN_BridgeData").out).find(row.node) != std::string::npos;
        })) << row.args << node;
        EXPECT_NE(file_text(out).find(row.printed), std::string::npos) << file_text(out);
    }
    // The datagram with "lost" behind an error was done before the last row began.
    EXPECT_EQ(file_text(out).find("dev=lost"), std::string::npos) << file_text(out);
    zntest::stop_process(worker);
}

// The header in host order, the session id and addresses in wire order, read
// byte by byte whatever the CPU.
TEST(BridgeDataWalk, SessionIdAndAddressesInWireOrder) {
    uint8_t m[56] = {};
    const nlmsghdr h{sizeof m, NLMSG_DONE, 0, 0, 0};
    memcpy(m, &h, sizeof h);
    memcpy(m + 44, "\x12\x34\0\0\xc0\xa8\x01\x0a", 8); // session id, two unused bytes, address
    static std::string seen;
    bridgedata_walk(m, sizeof m, [](const bridgedataReport &r) { seen = std::to_string(r.sessionID) + " " + r.ip; });
    EXPECT_EQ(seen, "4660 192.168.1.10");
}
