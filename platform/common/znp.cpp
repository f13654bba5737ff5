#include "znp.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <map>

namespace znp {
namespace {

int mkdir_parent(const char *path) {
    std::string dir(path);
    size_t slash = dir.rfind('/');
    if (slash == std::string::npos || slash == 0)
        return 0;
    dir.resize(slash);
    return mkdir(dir.c_str(), 0755) == 0 || errno == EEXIST ? 0 : -1;
}

std::map<std::string, std::string> board_read() {
    std::map<std::string, std::string> kv;
    FILE *f = fopen(kBoardFile, "re");
    if (!f)
        return kv;
    char line[512];
    while (fgets(line, sizeof line, f)) {
        line[strcspn(line, "\r\n")] = '\0';
        char *eq = strchr(line, '=');
        if (line[0] != '#' && eq && eq != line) {
            *eq = '\0';
            kv[line] = eq + 1;
        }
    }
    fclose(f);
    return kv;
}

bool clean(const std::string &s) { return s.find_first_of("\r\n") == std::string::npos; }

} // namespace

int journal(const char *service, const char *fmt, ...) {
    char args[768];
    va_list ap;
    va_start(ap, fmt);
    vsnprintf(args, sizeof args, fmt, ap);
    va_end(ap);
    for (char *p = args; *p; p++)
        if (*p == '\n' || *p == '\r')
            *p = ' ';
    struct timespec ts {};
    clock_gettime(CLOCK_REALTIME, &ts);
    char line[1024];
    int n = snprintf(line, sizeof line, "%lld.%03ld %d %s %s\n", (long long)ts.tv_sec, ts.tv_nsec / 1000000,
                     int(getpid()), service, args);
    if (n < 0)
        return -1;
    if (size_t(n) >= sizeof line) {
        n = sizeof line - 1;
        line[n - 1] = '\n';
    }
    mkdir_parent(kJournalFile);
    int fd = open(kJournalFile, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0)
        return -1;
    ssize_t w = write(fd, line, size_t(n));
    close(fd);
    return w == n ? 0 : -1;
}

int board_get(const std::string &key, std::string *value) {
    auto kv = board_read();
    auto it = kv.find(key);
    if (it == kv.end())
        return -1;
    *value = it->second;
    return 0;
}

int board_set(const std::string &key, const std::string &value) {
    if (key.empty() || key.find('=') != std::string::npos || !clean(key) || !clean(value))
        return -1;
    // Serialise writers of the file; readers see the old or the new file.
    int lock = open(kBoardFile, O_RDONLY | O_CREAT | O_CLOEXEC, 0644);
    if (lock < 0)
        return -1;
    flock(lock, LOCK_EX);
    auto kv = board_read();
    kv[key] = value;
    std::string tmp = std::string(kBoardFile) + ".new";
    FILE *f = fopen(tmp.c_str(), "we");
    int rc = -1;
    if (f) {
        for (const auto &e : kv)
            fprintf(f, "%s=%s\n", e.first.c_str(), e.second.c_str());
        rc = fclose(f) == 0 && rename(tmp.c_str(), kBoardFile) == 0 ? 0 : -1;
    }
    close(lock);
    return rc;
}

int board_list(std::string *out) {
    for (const auto &e : board_read())
        *out += e.first + "=" + e.second + "\n";
    return 0;
}

std::string format_line(const char *fmt, va_list ap) {
    char text[1024];
    vsnprintf(text, sizeof text, fmt, ap);
    size_t n = strlen(text);
    while (n && (text[n - 1] == '\n' || text[n - 1] == '\r'))
        n--;
    return {text, n};
}

} // namespace znp
