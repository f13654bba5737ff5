// Fuzz target: the in-process search of a lease file against grep itself.
// The input is an address, a line feed and the file's bytes (without the
// line feed, no file); an address that the tracker's checks refuse is never
// searched for. The first line of "grep ADDRESS FILE" in the C locale, read
// with fgets as the tracker read it through the shell (127 characters for
// an IPv4 address, 255 for an IPv6 one), must be the search's.
#include <arpa/inet.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "lanhost_addr.h"
#include "lanhost_lease_search.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const auto *feed = static_cast<const uint8_t *>(memchr(data, '\n', size));
    const size_t at = feed ? size_t(feed - data) : size;
    const std::string address(reinterpret_cast<const char *>(data), at);
    in6_addr v6;
    const bool v4 = ipv4_str_is_valid(address.c_str());
    if (address.size() != strlen(address.c_str()) || (!v4 && inet_pton(AF_INET6, address.c_str(), &v6) != 1))
        return 0;
    const int fd = memfd_create("leases", 0);
    if (fd < 0 || (feed && write(fd, feed + 1, size - at - 1) != ssize_t(size - at - 1)))
        abort();
    // A path beneath a file is missing for both.
    const std::string path = "/proc/self/fd/" + std::to_string(fd) + (feed ? "" : "/missing");
    const int room = v4 ? 128 : 256;
    FILE *grep = popen(("LC_ALL=C grep " + address + " " + path + " 2>/dev/null").c_str(), "r");
    std::string out(1 << 16, '\0'); // grep's output read whole: libFuzzer's alarm would break an fgets
    size_t have = 0;
    for (ssize_t n; grep && (n = read(fileno(grep), &out[have], out.size() - have)) != 0;)
        if ((n < 0 && errno != EINTR) || (n > 0 && (have += size_t(n)) == out.size()))
            abort();
    if (!grep || pclose(grep) == -1)
        abort();
    const size_t first = std::min({out.find('\n', 0) + 1, have, size_t(room - 1)}); // as fgets read it
    char got[256] = "";
    const bool found = lanhost_lease_first_line(address.c_str(), path.c_str(), got, size_t(room));
    close(fd);
    if ((have > 0) != found || (found && out.compare(0, first, got) != 0)) {
        fprintf(stderr, "grep %s: [%s]\nsearch: %d [%s]\n", address.c_str(), out.substr(0, first).c_str(), found, got);
        abort();
    }
    return 0;
}
