// The owner of a descriptor, for every worker that opens one.
#pragma once

#include <sys/socket.h>
#include <unistd.h>

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
inline int fd_rcvbuf_force(int fd, int bytes) {
    return setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &bytes, sizeof bytes);
}
