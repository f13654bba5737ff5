// libznkemu: preloaded into the processes of a virtual gateway, it gives
// them what the gateway's kernel has and ours hasn't.
//
// - Netlink protocols 25, 29 and 31. Such a socket is a unix datagram
//   socket underneath, so select, poll, epoll, read and close work on it as
//   they are. bind puts it at its port's path (kemu.h); what it sends to
//   the kernel goes to the components' log; what it receives comes from
//   the kernel as far as the sender's address tells. Other protocols,
//   routing netlink among them, are the real kernel's.
// - The MAC filter's files. While /run/znkemu/macfilter exists, paths below
//   /proc/macfilter open, stat, list and test there. Writes to its table append,
//   so that the file keeps every command written to the filter.
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <optional>

#include "kemu.h"

namespace {

// The next definition of a function we stand in front of.
template <typename Fn> Fn next_fn(Fn, const char *name) { return reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name)); }
#define ZN_REAL(fn) static const auto real = next_fn(&(fn), #fn)

// ---- netlink sockets ---------------------------------------------------------

struct Sock {
    int protocol;
    bool bound;
    uint32_t port;
    uint32_t groups;
    pid_t owner; // the process that bound it removes its file
    ino_t inode; // tells our socket from a later file of the same number
};

constexpr int kMaxFd = 4096;
std::mutex table_lock;
Sock table[kMaxFd];
std::atomic<bool> any_sock{false}; // spares other processes the lock on each write

ino_t inode_of(int fd) {
    struct stat st;
    return fstat(fd, &st) == 0 ? st.st_ino : 0;
}

std::optional<Sock> lookup(int fd) {
    if (fd < 0 || fd >= kMaxFd || !any_sock.load(std::memory_order_relaxed))
        return std::nullopt;
    std::lock_guard<std::mutex> g(table_lock);
    if (table[fd].protocol == 0)
        return std::nullopt;
    // A descriptor closed behind our back (dup2, close_range) is no longer ours.
    if (table[fd].inode != inode_of(fd)) {
        table[fd] = Sock{};
        return std::nullopt;
    }
    return table[fd];
}

void store(int fd, const Sock &s) {
    std::lock_guard<std::mutex> g(table_lock);
    any_sock = true;
    table[fd] = s;
}

int fail(int err) {
    errno = err;
    return -1;
}

bool port_taken(int protocol, uint32_t id) {
    for (const kemu::Port &p : kemu::ports(protocol))
        if (p.id == id)
            return true;
    return false;
}

// Binds like the kernel: an explicit port id must be free; port id 0 takes
// the process id or, when that is taken, the next free id from -4096 down.
// A bound socket may bind again to change its groups.
int bind_port(int fd, Sock s, uint32_t id, uint32_t groups) {
    kemu::BindLock lock(s.protocol);
    if (s.bound) {
        if (id != 0 && id != s.port)
            return fail(EINVAL);
        std::string from = kemu::port_path(s.protocol, s.port, s.groups);
        if (rename(from.c_str(), kemu::port_path(s.protocol, s.port, groups).c_str()) != 0)
            return -1;
        s.groups = groups;
        store(fd, s);
        return 0;
    }
    if (id != 0 && port_taken(s.protocol, id))
        return fail(EADDRINUSE);
    static uint32_t rover = uint32_t(-4096);
    for (uint32_t candidate = uint32_t(getpid()); id == 0; candidate = rover--)
        if (!port_taken(s.protocol, candidate))
            id = candidate;
    socklen_t len;
    sockaddr_un a = kemu::unix_address(kemu::port_path(s.protocol, id, groups), &len);
    ZN_REAL(bind);
    if (real(fd, reinterpret_cast<sockaddr *>(&a), len) != 0)
        return -1;
    s.bound = true;
    s.port = id;
    s.groups = groups;
    s.owner = getpid();
    store(fd, s);
    return 0;
}

// A netlink datagram from a socket of ours. To the kernel (port id 0) it
// lands in the log; to another port id it goes to that socket.
ssize_t send_netlink(int fd, Sock s, const sockaddr *to, socklen_t to_len, const uint8_t *data, size_t len, int flags) {
    sockaddr_nl dst{};
    if (to) {
        if (to_len < sizeof dst || to->sa_family != AF_NETLINK)
            return fail(EINVAL);
        memcpy(&dst, to, sizeof dst);
    }
    if (!s.bound) {
        if (bind_port(fd, s, 0, 0) != 0)
            return -1;
        s = *lookup(fd);
    }
    if (dst.nl_pid == 0) {
        if (dst.nl_groups != 0)
            return fail(EOPNOTSUPP);
        kemu::log_datagram(s.protocol, s.port, data, len);
        return ssize_t(len);
    }
    for (const kemu::Port &p : kemu::ports(s.protocol)) {
        if (p.id != dst.nl_pid)
            continue;
        socklen_t a_len;
        sockaddr_un a = kemu::unix_address(p.path, &a_len);
        ZN_REAL(sendto);
        return real(fd, data, len, flags, reinterpret_cast<sockaddr *>(&a), a_len);
    }
    return fail(ECONNREFUSED);
}

// Where a received datagram came from, as netlink tells it.
void put_source(const sockaddr_un &from, socklen_t from_len, void *to, socklen_t *to_len) {
    sockaddr_nl nl = kemu::source_address(from, from_len);
    memcpy(to, &nl, std::min<size_t>(*to_len, sizeof nl));
    *to_len = sizeof nl;
}

// ---- the MAC filter's files ------------------------------------------------

using kemu::kMacfilterDir;
using kemu::kMacfilterProc;
using kemu::kMacfilterTable;

// The path a process asked for, or its stand-in.
class Path {
public:
    explicit Path(const char *path) : path_(path) {
        constexpr size_t n = sizeof kMacfilterProc - 1;
        if (!path || strncmp(path, kMacfilterProc, n) != 0 || (path[n] != '\0' && path[n] != '/'))
            return;
        ZN_REAL(access);
        if (real(kMacfilterDir, F_OK) != 0)
            return;
        snprintf(buf_, sizeof buf_, "%s%s", kMacfilterDir, path + n);
        path_ = buf_;
    }
    operator const char *() const { return path_; }
    bool table() const { return path_ == buf_ && strcmp(buf_, kMacfilterTable) == 0; }
    // Open flags: the table is written as a log of commands.
    int flags(int f) const { return table() && (f & O_ACCMODE) != O_RDONLY ? (f & ~O_TRUNC) | O_APPEND : f; }
    const char *mode(const char *m) {
        if (!table() || m[0] != 'w')
            return m;
        snprintf(mode_, sizeof mode_, "a%s", m + 1);
        return mode_;
    }

private:
    const char *path_;
    char buf_[PATH_MAX];
    char mode_[16];
};

// open and its kin, all through the real openat.
int open_at(int dirfd, const char *path, int flags, va_list ap) {
    ZN_REAL(openat);
    bool has_mode = (flags & O_CREAT) || (flags & O_TMPFILE) == O_TMPFILE;
    mode_t mode = has_mode ? mode_t(va_arg(ap, int)) : 0;
    Path p(path);
    return real(dirfd, p, p.flags(flags), mode);
}

} // namespace

extern "C" {

int socket(int domain, int type, int protocol) {
    ZN_REAL(socket);
    if (domain != AF_NETLINK || !kemu::emulated(protocol))
        return real(domain, type, protocol);
    int kind = type & ~(SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (kind != SOCK_RAW && kind != SOCK_DGRAM)
        return fail(ESOCKTNOSUPPORT);
    if (kemu::refused(protocol))
        return fail(EPROTONOSUPPORT);
    int fd = real(AF_UNIX, SOCK_DGRAM | (type & (SOCK_NONBLOCK | SOCK_CLOEXEC)), 0);
    if (fd >= kMaxFd) {
        close(fd);
        return fail(EMFILE);
    }
    if (fd >= 0)
        store(fd, Sock{protocol, false, 0, 0, 0, inode_of(fd)});
    return fd;
}

int bind(int fd, const sockaddr *addr, socklen_t len) {
    ZN_REAL(bind);
    std::optional<Sock> s = lookup(fd);
    if (!s)
        return real(fd, addr, len);
    sockaddr_nl nl;
    if (len < sizeof nl || addr->sa_family != AF_NETLINK)
        return fail(EINVAL);
    memcpy(&nl, addr, sizeof nl);
    return bind_port(fd, *s, nl.nl_pid, nl.nl_groups);
}

int getsockname(int fd, sockaddr *addr, socklen_t *len) {
    ZN_REAL(getsockname);
    std::optional<Sock> s = lookup(fd);
    if (!s)
        return real(fd, addr, len);
    sockaddr_nl nl{};
    nl.nl_family = AF_NETLINK;
    nl.nl_pid = s->port;
    nl.nl_groups = s->groups;
    memcpy(addr, &nl, std::min<size_t>(*len, sizeof nl));
    *len = sizeof nl;
    return 0;
}

ssize_t sendto(int fd, const void *buf, size_t len, int flags, const sockaddr *to, socklen_t to_len) {
    ZN_REAL(sendto);
    std::optional<Sock> s = lookup(fd);
    if (!s)
        return real(fd, buf, len, flags, to, to_len);
    return send_netlink(fd, *s, to, to_len, static_cast<const uint8_t *>(buf), len, flags);
}

ssize_t send(int fd, const void *buf, size_t len, int flags) {
    ZN_REAL(send);
    std::optional<Sock> s = lookup(fd);
    if (!s)
        return real(fd, buf, len, flags);
    return send_netlink(fd, *s, nullptr, 0, static_cast<const uint8_t *>(buf), len, flags);
}

ssize_t write(int fd, const void *buf, size_t len) {
    ZN_REAL(write);
    std::optional<Sock> s = lookup(fd);
    if (!s)
        return real(fd, buf, len);
    return send_netlink(fd, *s, nullptr, 0, static_cast<const uint8_t *>(buf), len, 0);
}

ssize_t sendmsg(int fd, const msghdr *msg, int flags) {
    ZN_REAL(sendmsg);
    std::optional<Sock> s = lookup(fd);
    if (!s)
        return real(fd, msg, flags);
    std::vector<uint8_t> data;
    for (size_t i = 0; i < msg->msg_iovlen; i++) {
        const auto *base = static_cast<const uint8_t *>(msg->msg_iov[i].iov_base);
        data.insert(data.end(), base, base + msg->msg_iov[i].iov_len);
    }
    if (data.size() > kemu::kMaxDatagram)
        return fail(EMSGSIZE);
    return send_netlink(fd, *s, static_cast<const sockaddr *>(msg->msg_name), msg->msg_namelen, data.data(),
                        data.size(), flags);
}

ssize_t recvfrom(int fd, void *buf, size_t len, int flags, sockaddr *from, socklen_t *from_len) {
    ZN_REAL(recvfrom);
    if (!from || !lookup(fd))
        return real(fd, buf, len, flags, from, from_len);
    sockaddr_un src{};
    socklen_t src_len = sizeof src;
    ssize_t n = real(fd, buf, len, flags, reinterpret_cast<sockaddr *>(&src), &src_len);
    if (n >= 0)
        put_source(src, src_len, from, from_len);
    return n;
}

ssize_t recvmsg(int fd, msghdr *msg, int flags) {
    ZN_REAL(recvmsg);
    if (!msg->msg_name || !lookup(fd))
        return real(fd, msg, flags);
    sockaddr_un src{};
    msghdr m = *msg;
    m.msg_name = &src;
    m.msg_namelen = sizeof src;
    ssize_t n = real(fd, &m, flags);
    if (n < 0)
        return n;
    put_source(src, m.msg_namelen, msg->msg_name, &msg->msg_namelen);
    msg->msg_controllen = m.msg_controllen;
    msg->msg_flags = m.msg_flags;
    return n;
}

int close(int fd) {
    ZN_REAL(close);
    if (std::optional<Sock> s = lookup(fd)) {
        store(fd, Sock{});
        if (s->bound && s->owner == getpid())
            unlink(kemu::port_path(s->protocol, s->port, s->groups).c_str());
    }
    return real(fd);
}

// ---- path calls ------------------------------------------------------------

int open(const char *path, int flags, ...) {
    va_list ap;
    va_start(ap, flags);
    int fd = open_at(AT_FDCWD, path, flags, ap);
    va_end(ap);
    return fd;
}

int open64(const char *path, int flags, ...) {
    va_list ap;
    va_start(ap, flags);
    int fd = open_at(AT_FDCWD, path, flags | O_LARGEFILE, ap);
    va_end(ap);
    return fd;
}

int openat(int dirfd, const char *path, int flags, ...) {
    va_list ap;
    va_start(ap, flags);
    int fd = open_at(dirfd, path, flags, ap);
    va_end(ap);
    return fd;
}

int openat64(int dirfd, const char *path, int flags, ...) {
    va_list ap;
    va_start(ap, flags);
    int fd = open_at(dirfd, path, flags | O_LARGEFILE, ap);
    va_end(ap);
    return fd;
}

FILE *fopen(const char *path, const char *mode) {
    ZN_REAL(fopen);
    Path p(path);
    return real(p, p.mode(mode));
}

FILE *fopen64(const char *path, const char *mode) {
    ZN_REAL(fopen64);
    Path p(path);
    return real(p, p.mode(mode));
}

DIR *opendir(const char *path) {
    ZN_REAL(opendir);
    return real(Path(path));
}

int access(const char *path, int how) {
    ZN_REAL(access);
    return real(Path(path), how);
}

int faccessat(int dirfd, const char *path, int how, int flags) {
    ZN_REAL(faccessat);
    return real(dirfd, Path(path), how, flags);
}

int stat(const char *path, struct stat *st) {
    ZN_REAL(stat);
    return real(Path(path), st);
}

int stat64(const char *path, struct stat64 *st) {
    ZN_REAL(stat64);
    return real(Path(path), st);
}

int lstat(const char *path, struct stat *st) {
    ZN_REAL(lstat);
    return real(Path(path), st);
}

int lstat64(const char *path, struct stat64 *st) {
    ZN_REAL(lstat64);
    return real(Path(path), st);
}

int fstatat(int dirfd, const char *path, struct stat *st, int flags) {
    ZN_REAL(fstatat);
    return real(dirfd, Path(path), st, flags);
}

int fstatat64(int dirfd, const char *path, struct stat64 *st, int flags) {
    ZN_REAL(fstatat64);
    return real(dirfd, Path(path), st, flags);
}

int statx(int dirfd, const char *path, int flags, unsigned int mask, struct statx *st) {
    ZN_REAL(statx);
    return real(dirfd, Path(path), flags, mask, st);
}

} // extern "C"
