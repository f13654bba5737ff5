// Module log: one line per call on standard error. The threshold of a
// module is that of set_log_level unless a number in
// /run/zns_log/MODULE overrides it; the file is looked at once a second.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <map>
#include <mutex>
#include <string>

#include "znp.h"
#include "znsmsg.h"

namespace {

constexpr int kDefaultThreshold = 1;

std::mutex mu;
std::string module = "unknown";
std::map<std::string, int> thresholds;
time_t override_checked;
int override_level = -1;

int threshold_locked() {
    time_t now = time(nullptr);
    if (now != override_checked) {
        override_checked = now;
        override_level = -1;
        std::string path = std::string(znp::kLogLevelDir) + "/" + module;
        if (FILE *f = fopen(path.c_str(), "re")) {
            int v;
            if (fscanf(f, "%d", &v) == 1 && v >= 0)
                override_level = v;
            fclose(f);
        }
    }
    if (override_level >= 0)
        return override_level;
    auto it = thresholds.find(module);
    return it == thresholds.end() ? kDefaultThreshold : it->second;
}

} // namespace

extern "C" {

int zns_registerModule(const char *name) {
    if (!name || !*name)
        return -1;
    std::lock_guard<std::mutex> g(mu);
    module = name;
    override_checked = 0;
    return 0;
}

int set_log_level(const char *name, int level) {
    if (!name || !*name || level < 0)
        return -1;
    std::lock_guard<std::mutex> g(mu);
    thresholds[name] = level;
    return 0;
}

void zns_log_print(const char *file, const char *func, int line, int level, const char *fmt, ...) {
    std::lock_guard<std::mutex> g(mu);
    if (level > threshold_locked())
        return;
    va_list ap;
    va_start(ap, fmt);
    const std::string text = znp::format_line(fmt, ap);
    va_end(ap);
    char out[1400];
    int len = snprintf(out, sizeof out, "%s[%d] %s:%d %s(): %s\n", module.c_str(), level, file ? file : "?", line,
                       func ? func : "?", text.c_str());
    if (len > 0)
        fwrite(out, 1, std::min<size_t>(size_t(len), sizeof out - 1), stderr);
}

} // extern "C"
