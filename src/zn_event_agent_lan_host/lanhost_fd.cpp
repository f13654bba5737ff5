#include "lanhost_fd.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "agent_log.h"

int fd_rcvbuf_force(int fd, int bytes) { return setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &bytes, sizeof bytes); }

ssize_t lanhost_read_once(evutil_socket_t fd, void *buf, size_t size, const ReadRule &rule, const char *caller,
                          int line) {
    memset(buf, 0, size);
    const ssize_t n = recv(fd, buf, rule.text ? size - 1 : size, rule.flags);
    if (n >= 0 && size_t(n) >= rule.least)
        return n;
    const int saved = errno; // the caller may tell one failure from another
    switch (rule.failure) {
    case ReadFailure::kPlain:
        zn_event_lanhost_log(0, 1, caller, line, "read fail");
        break;
    case ReadFailure::kErrno:
        zn_event_lanhost_log(0, 1, caller, line, "read error: %s\n", strerror(errno));
        break;
    case ReadFailure::kResult:
        zn_event_lanhost_log(0, 1, caller, line, "recv netlink msg error:%d\n", int(n));
        break;
    }
    errno = saved;
    return -1;
}
