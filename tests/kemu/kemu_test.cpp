// The kernel components in user space where no agent test meets them: how
// their sockets take port ids. What the components send and the MAC filter's
// files are proven by the agent's tests (device, bridge data, liveness and
// user-agent tests).
#include <linux/netlink.h>
#include <sys/socket.h>

#include <cstring>

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

TEST(Kemu, PortIdsAreTakenAsNetlinkTakesThem) {
    int listener = nl_socket(25, 0, 1), other = nl_socket(25, 0, 0);
    // Port id 0 binds to the process id, or another free one once that is taken.
    EXPECT_EQ(bound_port(listener), kPid);
    EXPECT_NE(bound_port(other), kPid);
    int clash = socket(AF_NETLINK, SOCK_RAW, 25);
    sockaddr_nl taken{AF_NETLINK, 0, kPid, 0};
    EXPECT_EQ(bind(clash, reinterpret_cast<sockaddr *>(&taken), sizeof taken), -1);
    EXPECT_EQ(errno, EADDRINUSE);

    for (int fd : {listener, other, clash})
        close(fd);
}

} // namespace
