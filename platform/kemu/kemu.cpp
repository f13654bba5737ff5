#include "kemu.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace kemu {
namespace {

constexpr const char *kKernelName = "znkemu-kernel.%x.%d"; // groups, pid
constexpr size_t kLogHexMax = 2048;                        // bytes of a message shown in hex
constexpr size_t kLogTextMax = 64;                         // characters of a greeting's text shown

// "ID.GROUPS" names a port's socket file.
bool parse_port_name(const char *name, uint32_t *id, uint32_t *groups) {
    int end = 0;
    return name[0] >= '0' && name[0] <= '9' && sscanf(name, "%u.%x%n", id, groups, &end) == 2 && name[end] == '\0';
}

// A socket file whose socket is gone refuses connections.
bool alive(const std::string &path) {
    int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return true;
    socklen_t len;
    sockaddr_un a = unix_address(path, &len);
    bool ok = connect(fd, reinterpret_cast<sockaddr *>(&a), len) == 0 || errno != ECONNREFUSED;
    close(fd);
    return ok;
}

void append_escaped(std::string *out, const char *text, size_t len) {
    for (size_t i = 0; i < len && text[i]; i++) {
        unsigned char c = static_cast<unsigned char>(text[i]);
        if (i == kLogTextMax) {
            *out += "...";
            break;
        }
        if (c >= 0x20 && c < 0x7f && c != '"' && c != '\\') {
            *out += char(c);
        } else {
            char esc[8];
            snprintf(esc, sizeof esc, "\\x%02x", c);
            *out += esc;
        }
    }
}

std::string summary(int protocol, const uint8_t *msg, size_t len) {
    nlmsghdr h;
    memcpy(&h, msg, sizeof h);
    char buf[64];
    if (protocol == kProtoUserAgent) {
        snprintf(buf, sizeof buf, "greeting pid=%u text=\"", h.nlmsg_pid);
        std::string s = buf;
        append_escaped(&s, reinterpret_cast<const char *>(msg) + NLMSG_HDRLEN, len - NLMSG_HDRLEN);
        return s + "\"";
    }
    if (protocol == kProtoBridgeData && len >= sizeof(BridgeDataCommand) &&
        (h.nlmsg_type == kBridgeDataConnect || h.nlmsg_type == kBridgeDataDisconnect)) {
        BridgeDataCommand c;
        memcpy(&c, msg, sizeof c);
        snprintf(buf, sizeof buf, "%s pid=%u", h.nlmsg_type == kBridgeDataConnect ? "connect" : "disconnect", c.pid);
        return buf;
    }
    snprintf(buf, sizeof buf, "type=%u pid=%u", h.nlmsg_type, h.nlmsg_pid);
    return buf;
}

void log_line(int protocol, uint32_t sender, const std::string &what, const uint8_t *msg, size_t len) {
    timespec ts{};
    clock_gettime(CLOCK_REALTIME, &ts);
    char head[128];
    snprintf(head, sizeof head, "%lld.%03ld proto=%d port=%u len=%zu ", (long long)ts.tv_sec, ts.tv_nsec / 1000000,
             protocol, sender, len);
    std::string line = head + what + " hex=";
    static const char digits[] = "0123456789abcdef";
    for (size_t i = 0; i < len && i < kLogHexMax; i++) {
        line += digits[msg[i] >> 4];
        line += digits[msg[i] & 15];
    }
    line += len > kLogHexMax ? "...\n" : "\n";
    mkdirs(kRoot);
    // One write per line, so that lines of several processes never mix.
    int fd = open(kLogPath, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0)
        return;
    ssize_t ignored = write(fd, line.data(), line.size());
    (void)ignored;
    close(fd);
}

} // namespace

sockaddr_un unix_address(const std::string &path, socklen_t *len) {
    sockaddr_un a{};
    a.sun_family = AF_UNIX;
    snprintf(a.sun_path, sizeof a.sun_path, "%s", path.c_str());
    *len = socklen_t(offsetof(sockaddr_un, sun_path) + strlen(a.sun_path) + 1);
    return a;
}

std::string port_dir(int protocol) { return std::string(kRoot) + "/" + std::to_string(protocol); }

std::string port_path(int protocol, uint32_t id, uint32_t groups) {
    char name[32];
    snprintf(name, sizeof name, "/%u.%x", id, groups);
    return port_dir(protocol) + name;
}

std::string refusal_path(int protocol) { return port_dir(protocol) + ".off"; }

bool refused(int protocol) {
    struct stat st;
    return stat(refusal_path(protocol).c_str(), &st) == 0;
}

std::vector<Port> ports(int protocol) {
    std::vector<Port> out;
    std::string dir = port_dir(protocol);
    DIR *d = opendir(dir.c_str());
    if (!d)
        return out;
    while (dirent *e = readdir(d)) {
        Port p{};
        if (!parse_port_name(e->d_name, &p.id, &p.groups))
            continue;
        p.path = dir + "/" + e->d_name;
        if (alive(p.path))
            out.push_back(p);
        else
            unlink(p.path.c_str());
    }
    closedir(d);
    return out;
}

BindLock::BindLock(int protocol) {
    std::string dir = port_dir(protocol);
    if (mkdirs(dir) != 0)
        return;
    fd_ = open((dir + "/.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (fd_ >= 0)
        flock(fd_, LOCK_EX);
}

BindLock::~BindLock() {
    if (fd_ >= 0)
        close(fd_);
}

int mkdirs(const std::string &dir) {
    for (size_t slash = 1; slash != std::string::npos; slash = dir.find('/', slash + 1)) {
        std::string part = dir.substr(0, slash);
        if (slash > 1 && mkdir(part.c_str(), 0755) != 0 && errno != EEXIST)
            return -1;
    }
    return mkdir(dir.c_str(), 0755) == 0 || errno == EEXIST ? 0 : -1;
}

int kernel_socket(uint32_t groups) {
    int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return -1;
    sockaddr_un a{};
    a.sun_family = AF_UNIX;
    int n = snprintf(a.sun_path + 1, sizeof a.sun_path - 1, kKernelName, groups, int(getpid()));
    if (bind(fd, reinterpret_cast<sockaddr *>(&a), socklen_t(offsetof(sockaddr_un, sun_path) + 1 + n)) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

sockaddr_nl source_address(const sockaddr_un &from, socklen_t len) {
    sockaddr_nl nl{};
    nl.nl_family = AF_NETLINK;
    if (len <= offsetof(sockaddr_un, sun_path) + 1)
        return nl;
    std::string name(from.sun_path, len - offsetof(sockaddr_un, sun_path));
    uint32_t groups;
    int pid;
    size_t slash = name.rfind('/');
    if (name[0] == '\0') {
        if (sscanf(name.c_str() + 1, kKernelName, &groups, &pid) == 2)
            nl.nl_groups = groups;
    } else if (name.compare(0, strlen(kRoot), kRoot) == 0 && slash != std::string::npos &&
               !parse_port_name(name.c_str() + slash + 1, &nl.nl_pid, &groups)) {
        nl.nl_pid = 0;
    }
    return nl;
}

void log_datagram(int protocol, uint32_t sender, const uint8_t *data, size_t len) {
    size_t left = len;
    while (left > 0) {
        nlmsghdr h{};
        if (left >= sizeof h)
            memcpy(&h, data, sizeof h);
        if (left < sizeof h || h.nlmsg_len < sizeof h || h.nlmsg_len > left) {
            log_line(protocol, sender, "malformed", data, left);
            return;
        }
        log_line(protocol, sender, summary(protocol, data, h.nlmsg_len), data, h.nlmsg_len);
        size_t step = std::min(size_t(NLMSG_ALIGN(h.nlmsg_len)), left);
        data += step;
        left -= step;
    }
}

std::vector<LogEntry> read_log() {
    std::vector<LogEntry> out;
    FILE *f = fopen(kLogPath, "re");
    if (!f)
        return out;
    char *line = nullptr;
    size_t cap = 0;
    while (getline(&line, &cap, f) > 0) {
        LogEntry e{0, "", 0};
        char kind[64];
        if (sscanf(line, "%*s proto=%d port=%*u len=%*u %63s pid=%u", &e.protocol, kind, &e.pid) >= 2) {
            e.kind = kind;
            out.push_back(e);
        }
    }
    free(line);
    fclose(f);
    return out;
}

} // namespace kemu
