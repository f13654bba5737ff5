// Event bus: each subscriber owns a datagram socket in the bus directory;
// a notification is one datagram to each of them.
#include <dirent.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "znp.h"
#include "znsmsg.h"

namespace {

struct Wire {
    uint32_t event;
    uint32_t code;
    uint32_t has_payload;
};

constexpr size_t kMaxDatagram = sizeof(Wire) + ZNS_EVENT_PAYLOAD_MAX;

bool bus_address(const char *name, sockaddr_un *sa) {
    memset(sa, 0, sizeof *sa);
    sa->sun_family = AF_UNIX;
    return snprintf(sa->sun_path, sizeof sa->sun_path, "%s/%s", znp::kBusDir, name) < int(sizeof sa->sun_path);
}

} // namespace

extern "C" {

int zns_eventNotify(uint32_t event, uint32_t code, const char *payload) {
    size_t len = payload ? strnlen(payload, ZNS_EVENT_PAYLOAD_MAX + 1) : 0;
    if (len > ZNS_EVENT_PAYLOAD_MAX)
        return -1;
    unsigned char msg[kMaxDatagram];
    Wire w{event, code, payload ? 1u : 0u};
    memcpy(msg, &w, sizeof w);
    if (len)
        memcpy(msg + sizeof w, payload, len);
    DIR *dir = opendir(znp::kBusDir);
    if (!dir)
        return errno == ENOENT ? 0 : -1;
    int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        closedir(dir);
        return -1;
    }
    int delivered = 0;
    bool failed = false;
    while (dirent *e = readdir(dir)) {
        sockaddr_un sa;
        if (strncmp(e->d_name, "sub.", 4) != 0 || !bus_address(e->d_name, &sa))
            continue;
        if (sendto(fd, msg, sizeof w + len, MSG_DONTWAIT | MSG_NOSIGNAL, reinterpret_cast<sockaddr *>(&sa),
                   sizeof sa) >= 0) {
            delivered++;
        } else if (errno == ECONNREFUSED || errno == ENOENT) {
            unlink(sa.sun_path); // its subscriber has gone
        } else {
            failed = true;
        }
    }
    close(fd);
    closedir(dir);
    return failed ? -1 : delivered;
}

int zns_eventSubscribe(void) {
    static std::atomic<unsigned> serial{0};
    mkdir(znp::kBusDir, 0755);
    char name[64];
    snprintf(name, sizeof name, "sub.%d.%u", int(getpid()), serial++);
    sockaddr_un sa;
    int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0 || !bus_address(name, &sa))
        return -1;
    int size = 1 << 20;
    setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
    unlink(sa.sun_path);
    if (bind(fd, reinterpret_cast<sockaddr *>(&sa), sizeof sa) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

int zns_eventReceive(int fd, uint32_t *event, uint32_t *code, char *payload, size_t size, int *has_payload) {
    unsigned char msg[kMaxDatagram];
    ssize_t n;
    do
        n = recv(fd, msg, sizeof msg, 0);
    while (n < 0 && errno == EINTR);
    if (n < ssize_t(sizeof(Wire)) || size == 0)
        return -1;
    Wire w;
    memcpy(&w, msg, sizeof w);
    size_t len = std::min(size_t(n) - sizeof w, size - 1);
    memcpy(payload, msg + sizeof w, len);
    payload[len] = '\0';
    *event = w.event;
    *code = w.code;
    *has_payload = w.has_payload ? 1 : 0;
    return 0;
}

} // extern "C"
