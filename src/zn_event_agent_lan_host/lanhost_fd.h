// Descriptors of the tracker: a unique owner, and the one read that a
// callback makes of its woken socket.
#pragma once

#include <event2/util.h>
#include <sys/types.h>
#include <unistd.h>

#include <cstddef>

// Closes the descriptor it holds when it goes out of scope.
class UniqueFd {
public:
    explicit UniqueFd(int fd = -1) : fd_(fd) {}
    ~UniqueFd() {
        if (fd_ >= 0)
            close(fd_);
    }
    UniqueFd(const UniqueFd &) = delete;
    UniqueFd &operator=(const UniqueFd &) = delete;

    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    // Gives the descriptor up for good. The tracker's eight sockets are the
    // ones that stay open this way: they serve its loop until the process ends.
    int release() {
        const int fd = fd_;
        fd_ = -1;
        return fd;
    }

private:
    int fd_;
};

// Gives a socket a receive buffer of bytes (the kernel doubles the figure),
// forced past net.core.rmem_max, which is far smaller on a gateway; 0, or
// -1 with errno.
int fd_rcvbuf_force(int fd, int bytes);

// The words of a callback's line for a failed read.
enum class ReadFailure {
    kPlain,  // "read fail"
    kErrno,  // "read error: %s\n" with the text of errno
    kResult, // "recv netlink msg error:%d\n" with the result
};

struct ReadRule {
    ReadFailure failure;
    bool text = false; // the buffer's last byte stays 0, so a text datagram ends there
    size_t least = 0;  // a shorter datagram counts as a failed read
    int flags = 0;     // of the recv
};

// The one read of a woken socket: all size bytes of buf are zeroed, then one
// recv. A failure is logged at level 1 (tracker log) under the name and line
// of the calling callback and gives -1 with errno as the recv left it;
// else the number of bytes read.
ssize_t lanhost_read_once(evutil_socket_t fd, void *buf, size_t size, const ReadRule &rule,
                          const char *caller = __builtin_FUNCTION(), int line = __builtin_LINE());
