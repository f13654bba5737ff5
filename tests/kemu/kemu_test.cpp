// The kernel components in user space, as the processes of a virtual
// gateway see them: sockets of the private netlink protocols, what the
// components send and log, and the MAC filter's files.
#include <event2/event.h>
#include <gtest/gtest.h>
#include <linux/netlink.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "shell.h"

namespace {

using zntest::sh;

const uint32_t kPid = uint32_t(getpid());
const std::string kPidText = std::to_string(kPid);

int nl_socket(int protocol, uint32_t port, uint32_t groups) {
    int fd = socket(AF_NETLINK, SOCK_RAW, protocol);
    sockaddr_nl a{AF_NETLINK, 0, port, groups};
    EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr *>(&a), sizeof a), 0) << strerror(errno);
    return fd;
}

uint32_t bound_port(int fd) {
    sockaddr_nl a{};
    socklen_t len = sizeof a;
    EXPECT_EQ(getsockname(fd, reinterpret_cast<sockaddr *>(&a), &len), 0);
    return a.nl_pid;
}

ssize_t to_kernel(int fd, const void *msg, size_t len) {
    sockaddr_nl kernel{AF_NETLINK, 0, 0, 0};
    iovec iov{const_cast<void *>(msg), len};
    msghdr m{&kernel, sizeof kernel, &iov, 1, nullptr, 0, 0};
    return sendmsg(fd, &m, 0);
}

// One datagram, or none after 5 s; the sender's address in *from.
std::vector<uint8_t> receive(int fd, sockaddr_nl *from) {
    std::vector<uint8_t> buf(2048);
    pollfd p{fd, POLLIN, 0};
    if (poll(&p, 1, 5000) != 1)
        return {};
    iovec iov{buf.data(), buf.size()};
    msghdr m{from, sizeof *from, &iov, 1, nullptr, 0, 0};
    ssize_t n = recvmsg(fd, &m, 0);
    buf.resize(n > 0 ? size_t(n) : 0);
    return buf;
}

uint32_t u32(const std::vector<uint8_t> &b, size_t at) {
    uint32_t v;
    memcpy(&v, b.data() + at, 4);
    return v;
}
uint16_t u16(const std::vector<uint8_t> &b, size_t at) {
    uint16_t v;
    memcpy(&v, b.data() + at, 2);
    return v;
}
std::vector<uint8_t> bytes(const std::vector<uint8_t> &b, size_t at, size_t n) {
    return {b.begin() + long(at), b.begin() + long(at + n)};
}

TEST(Kemu, UserAgentModuleLogsTheGreetingAndReportsToTheGreeter) {
    int fd = nl_socket(31, kPid, 0);
    uint8_t greeting[1040] = {};
    uint32_t len = sizeof greeting;
    memcpy(greeting, &len, 4);
    memcpy(greeting + 12, &kPid, 4);
    strcpy(reinterpret_cast<char *>(greeting) + 16, "user space lanhost http thread");
    ASSERT_EQ(to_kernel(fd, greeting, sizeof greeting), 1040);
    EXPECT_NE(sh("znkernel log").out.find("proto=31 port=" + kPidText + " len=1040 greeting pid=" + kPidText +
                                          " text=\"user space lanhost http thread\" hex=10040000"),
              std::string::npos);

    // Two reports in one datagram, read in a libevent callback.
    ASSERT_EQ(sh("znkernel ua report 02:00:00:00:00:0A 'User-Agent: iPhone' 02:00:00:00:00:0b x").status, 0);
    struct Read {
        std::vector<uint8_t> buf = std::vector<uint8_t>(1024);
        ssize_t n = -1;
        sockaddr_nl from{};
        event_base *base = event_base_new();
    } r;
    event *ev = event_new(
        r.base, fd, EV_READ | EV_PERSIST,
        [](evutil_socket_t s, short, void *arg) {
            auto *r = static_cast<Read *>(arg);
            iovec iov{r->buf.data(), r->buf.size()};
            msghdr m{&r->from, sizeof r->from, &iov, 1, nullptr, 0, 0};
            r->n = recvmsg(s, &m, 0);
            event_base_loopbreak(r->base);
        },
        &r);
    event_add(ev, nullptr);
    timeval limit{5, 0};
    event_base_loopexit(r.base, &limit);
    event_base_dispatch(r.base);
    event_free(ev);
    event_base_free(r.base);
    close(fd);

    ASSERT_EQ(r.n, 44 + 24);
    EXPECT_EQ(r.from.nl_family, AF_NETLINK);
    EXPECT_EQ(r.from.nl_pid, 0u);
    EXPECT_EQ(u32(r.buf, 0), 22u + 19);
    EXPECT_EQ(u16(r.buf, 4), NLMSG_DONE);
    EXPECT_EQ(bytes(r.buf, 16, 6), (std::vector<uint8_t>{2, 0, 0, 0, 0, 0x0a}));
    EXPECT_STREQ(reinterpret_cast<char *>(r.buf.data()) + 22, "User-Agent: iPhone");
    EXPECT_EQ(u32(r.buf, 44), 22u + 2);
    EXPECT_EQ(bytes(r.buf, 44 + 16, 6), (std::vector<uint8_t>{2, 0, 0, 0, 0, 0x0b}));
    EXPECT_STREQ(reinterpret_cast<char *>(r.buf.data()) + 44 + 22, "x");
}

TEST(Kemu, PonDriverMulticastsToGroupOne) {
    int listener = nl_socket(25, 0, 1);
    int other = nl_socket(25, 0, 0);
    // Port id 0 binds to the process id, or another free one once that is taken.
    EXPECT_EQ(bound_port(listener), kPid);
    EXPECT_NE(bound_port(other), kPid);
    int clash = socket(AF_NETLINK, SOCK_RAW, 25);
    sockaddr_nl taken{AF_NETLINK, 0, kPid, 0};
    EXPECT_EQ(bind(clash, reinterpret_cast<sockaddr *>(&taken), sizeof taken), -1);
    EXPECT_EQ(errno, EADDRINUSE);

    ASSERT_EQ(sh("znkernel pon wan-change 1").status, 0);
    sockaddr_nl from{};
    std::vector<uint8_t> m = receive(listener, &from);
    ASSERT_GE(m.size(), 23u);
    EXPECT_EQ(u32(m, 0), 23u);
    EXPECT_EQ(m[18], 9);
    EXPECT_EQ(u32(m, 19), 1u);
    EXPECT_EQ(from.nl_pid, 0u);
    EXPECT_EQ(from.nl_groups, 1u);

    ASSERT_EQ(sh("znkernel pon recovered 2").status, 0);
    m = receive(listener, &from);
    ASSERT_GE(m.size(), 20u);
    EXPECT_EQ(m[18], 14);
    EXPECT_EQ(m[19], 2);

    char byte;
    EXPECT_EQ(recv(other, &byte, 1, MSG_DONTWAIT), -1);
    for (int fd : {listener, other, clash})
        close(fd);
}

TEST(Kemu, BridgeDataReportsGoToConnectedListeners) {
    int fd = nl_socket(29, kPid, 0);
    auto command = [&](uint16_t type) {
        uint32_t cmd[5] = {20, type, 0, kPid, kPid};
        return to_kernel(fd, cmd, sizeof cmd);
    };
    ASSERT_EQ(command(1), 20);
    EXPECT_NE(sh("znkernel log").out.find("proto=29 port=" + kPidText + " len=20 connect pid=" + kPidText),
              std::string::npos);

    ASSERT_EQ(sh("znkernel bridgedata report br0 02:00:00:00:00:01 02:00:00:00:00:02 0x1234 192.168.1.10 "
                 "192.168.1.1")
                  .status,
              0);
    sockaddr_nl from{};
    std::vector<uint8_t> m = receive(fd, &from);
    ASSERT_EQ(m.size(), 56u);
    EXPECT_EQ(u32(m, 0), 56u);
    EXPECT_EQ(u16(m, 4), NLMSG_DONE);
    EXPECT_STREQ(reinterpret_cast<char *>(m.data()) + 16, "br0");
    EXPECT_EQ(bytes(m, 32, 6), (std::vector<uint8_t>{2, 0, 0, 0, 0, 1}));
    EXPECT_EQ(bytes(m, 38, 6), (std::vector<uint8_t>{2, 0, 0, 0, 0, 2}));
    EXPECT_EQ(bytes(m, 44, 2), (std::vector<uint8_t>{0x12, 0x34}));
    EXPECT_EQ(bytes(m, 48, 8), (std::vector<uint8_t>{192, 168, 1, 10, 192, 168, 1, 1}));

    ASSERT_EQ(command(2), 20);
    zntest::Result r = sh("znkernel bridgedata report br0 02:00:00:00:00:01 02:00:00:00:00:02 1 0.0.0.0 0.0.0.0");
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.out.find("no listener"), std::string::npos);
    close(fd);
}

TEST(Kemu, WirelessDriverMessageReachesTheAgentsRoutingSocket) {
    int fd = nl_socket(NETLINK_ROUTE, kPid | 0x640000, 4);
    for (const std::string &cmd : std::vector<std::string>{"znkernel wlan-leave 02:00:00:00:00:0C",
                                                            "znkernel wlan-leave --pid " + kPidText + " 02:00:00:00:00:0d"}) {
        ASSERT_EQ(sh(cmd).status, 0) << cmd;
        sockaddr_nl from{};
        std::vector<uint8_t> m;
        do // group 4 may bring the kernel's own neighbour messages first
            m = receive(fd, &from);
        while (m.size() >= 16 && u16(m, 4) != 200);
        ASSERT_EQ(m.size(), 34u) << cmd;
        EXPECT_EQ(u32(m, 0), 34u);
        EXPECT_EQ(std::string(reinterpret_cast<char *>(m.data()) + 16), cmd.substr(cmd.size() - 17));
    }
    close(fd);
}

TEST(Kemu, MacFilterStandInIsSeenByFopenAndShell) {
    EXPECT_EQ(fopen("/proc/macfilter/stat", "r"), nullptr);
    ASSERT_EQ(sh("znkernel macfilter stat aa:bb:cc:dd:ee:ff 3 02:00:00:00:00:01 0").status, 0);
    FILE *f = fopen("/proc/macfilter/stat", "r");
    ASSERT_NE(f, nullptr);
    char line[100], mac[100];
    int count = -1;
    ASSERT_NE(fgets(line, sizeof line, f), nullptr);
    ASSERT_NE(fgets(line, sizeof line, f), nullptr);
    fclose(f);
    ASSERT_EQ(sscanf(line, "%s %d", mac, &count), 2);
    EXPECT_STREQ(mac, "aa:bb:cc:dd:ee:ff");
    EXPECT_EQ(count, 3);
    EXPECT_NE(sh("cat /proc/macfilter/stat").out.find("aa:bb:cc:dd:ee:ff 3\n02:00:00:00:00:01 0\n"),
              std::string::npos);

    // Each command written to the table stays in it.
    sh("echo FLG mac:AA:BB:CC:DD:EE:FF > /proc/macfilter/table");
    sh("echo FLG mac:02:00:00:00:00:01 > /proc/macfilter/table");
    EXPECT_EQ(sh("znkernel macfilter table-show").out, "FLG mac:AA:BB:CC:DD:EE:FF\nFLG mac:02:00:00:00:00:01\n");

    ASSERT_EQ(sh("znkernel macfilter off").status, 0);
    EXPECT_EQ(fopen("/proc/macfilter/stat", "r"), nullptr);
    EXPECT_NE(sh("cat /proc/macfilter/stat").status, 0);
}

TEST(Kemu, BadArgumentsAreRefused) {
    for (const char *cmd : {
             "znkernel pon wan-change one",
             "znkernel pon recovered 256",
             "znkernel pon raw 123",
             "znkernel ua report 02:00:00:00:00 text",
             "znkernel bridgedata report an-interface-name 02:00:00:00:00:01 02:00:00:00:00:02 1 1.2.3.4 1.2.3.4",
             "znkernel bridgedata report br0 02:00:00:00:00:01 02:00:00:00:00:02 65536 1.2.3.4 1.2.3.4",
             "znkernel bridgedata report br0 02:00:00:00:00:01 02:00:00:00:00:02 1 1.2.3 1.2.3.4",
             "znkernel wlan-leave 02-00-00-00-00-01",
             "znkernel macfilter stat aa:bb:cc:dd:ee:ff many",
             "znkernel pon",
         }) {
        zntest::Result r = sh(cmd);
        EXPECT_NE(r.status, 0) << cmd;
        EXPECT_EQ(r.out.rfind("znkernel: ", 0) == 0 || r.out.rfind("usage: znkernel", 0) == 0, true) << cmd << r.out;
    }
}

} // namespace
