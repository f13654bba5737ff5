// The kernel components in user space where no agent test meets them yet:
// the PON driver's and the bridge data component's sockets. The user-agent
// module, the wireless driver's message and the MAC filter's files are proven
// by the agent's tests.
#include <linux/netlink.h>
#include <poll.h>
#include <sys/socket.h>

#include <cstring>
#include <vector>

#include "shell.h"

namespace {

using namespace zntest;

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

// One datagram, or none after 5 s; the sender's address in *from.
std::vector<uint8_t> receive(int fd, sockaddr_nl *from) {
    std::vector<uint8_t> buf(2048);
    socklen_t len = sizeof *from;
    pollfd p{fd, POLLIN, 0};
    const ssize_t n =
        poll(&p, 1, 5000) == 1 ? recvfrom(fd, buf.data(), buf.size(), 0, reinterpret_cast<sockaddr *>(from), &len) : 0;
    buf.resize(n > 0 ? size_t(n) : 0);
    return buf;
}

// The bytes of m from at on, as hexadecimal text.
std::string hex(const std::vector<uint8_t> &m, size_t at, size_t n) {
    std::string text;
    for (size_t i = at; i < at + n && i < m.size(); i++)
        text += "0123456789abcdef"[m[i] >> 4], text += "0123456789abcdef"[m[i] & 15];
    return text;
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

    ASSERT_TRUE(run("znkernel pon wan-change 1"));
    sockaddr_nl from{};
    std::vector<uint8_t> m = receive(listener, &from);
    EXPECT_EQ(hex(m, 0, 4) + " " + hex(m, 18, 5), "17000000 0901000000"); // length 23, event 9, mode 1
    EXPECT_EQ(from.nl_pid + from.nl_groups, 1u) << "from the kernel to group 1";

    ASSERT_TRUE(run("znkernel pon recovered 2"));
    EXPECT_EQ(hex(receive(listener, &from), 18, 2), "0e02");

    char byte;
    EXPECT_EQ(recv(other, &byte, 1, MSG_DONTWAIT), -1);
    for (int fd : {listener, other, clash})
        close(fd);
}

TEST(Kemu, BridgeDataReportsGoToConnectedListeners) {
    int fd = nl_socket(29, kPid, 0);
    auto command = [&](uint16_t type) {
        const uint32_t cmd[5] = {20, type, 0, kPid, kPid};
        const sockaddr_nl kernel{AF_NETLINK, 0, 0, 0};
        return sendto(fd, cmd, sizeof cmd, 0, reinterpret_cast<const sockaddr *>(&kernel), sizeof kernel);
    };
    ASSERT_EQ(command(1), 20);
    EXPECT_NE(sh("znkernel log").out.find("proto=29 port=" + kPidText + " len=20 connect pid=" + kPidText),
              std::string::npos);

    ASSERT_TRUE(run("znkernel bridgedata report br0 02:00:00:00:00:01 02:00:00:00:00:02 0x1234 192.168.1.10 "
                    "192.168.1.1"));
    sockaddr_nl from{};
    std::vector<uint8_t> m = receive(fd, &from);
    ASSERT_EQ(m.size(), 56u);
    EXPECT_EQ(hex(m, 0, 6), "380000000300"); // length 56, NLMSG_DONE
    EXPECT_EQ(hex(m, 16, 4) + " " + hex(m, 32, 24), "62723000 02000000000102000000000212340000c0a8010ac0a80101");

    ASSERT_EQ(command(2), 20);
    Result r = sh("znkernel bridgedata report br0 02:00:00:00:00:01 02:00:00:00:00:02 1 0.0.0.0 0.0.0.0");
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.out.find("no listener"), std::string::npos);
    close(fd);
}

} // namespace
