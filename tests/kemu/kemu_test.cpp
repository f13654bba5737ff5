// The kernel components in user space where no agent test meets them yet:
// the PON driver's sockets. The user-agent module, the bridge data component,
// the wireless driver's message and the MAC filter's files are proven by the
// agent's tests.
#include <linux/netlink.h>
#include <poll.h>
#include <sys/socket.h>

#include <cstring>
#include <vector>

#include "shell.h"

namespace {

using namespace zntest;

const uint32_t kPid = uint32_t(getpid());

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

} // namespace
