#include "agent_dgram.h"

#include <sys/select.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "agent_log.h"
#include "unique_fd.h"

namespace {

constexpr int kRcvBuf = 2048;
constexpr time_t kWaitSeconds = 5;

} // namespace

int zn_event_dgram_sock_init(const char *path) {
    UniqueFd fd(socket(AF_UNIX, SOCK_DGRAM, 0));
    if (!fd)
        return -1;
    sockaddr_un addr;
    memset(&addr, 0, sizeof addr);
    addr.sun_family = AF_UNIX;
    snprintf(addr.sun_path, sizeof addr.sun_path, "%s", path);
    int size = kRcvBuf;
    if (setsockopt(fd.get(), SOL_SOCKET, SO_RCVBUF, &size, sizeof size) != 0)
        return -1;
    unlink(path); // a file left by an earlier run would refuse the bind
    if (bind(fd.get(), reinterpret_cast<sockaddr *>(&addr), sizeof addr) != 0)
        return -1;
    return fd.release();
}

bool zn_event_dgram_read(int fd, char (&buf)[kAgentDgramSize], CallSite caller) {
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(fd, &readable);
    timeval wait{kWaitSeconds, 0};
    if (select(fd + 1, &readable, nullptr, nullptr, &wait) <= 0 || !FD_ISSET(fd, &readable))
        return false;
    memset(buf, 0, sizeof buf);
    if (read(fd, buf, sizeof buf - 1) < 0)
        ZN_LOG_AT(caller, 0, "read error: %s\n", strerror(errno));
    return true;
}
