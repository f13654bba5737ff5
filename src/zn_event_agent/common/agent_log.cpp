#include "agent_log.h"

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>

int zn_event_lanhost_log_levels[kLanhostLogModules];

void zn_event_lanhost_log_init() {
    zn_event_lanhost_log_levels[0] = 0;
    zn_event_lanhost_log_levels[1] = 3;
    zn_event_lanhost_log_levels[2] = 3;
}

void zn_event_lanhost_log(int module, int level, const char *func, int line, const char *fmt, ...) {
    if (module < 0 || module >= kLanhostLogModules || zn_event_lanhost_log_levels[module] < level)
        return;
    char stamp[32];
    time_t now = time(nullptr);
    struct tm tm {};
    localtime_r(&now, &tm);
    strftime(stamp, sizeof stamp, "[%Y-%m-%d %H:%M:%S]", &tm);
    printf("%s[zn_even_agent]%s#%d ", stamp, func, line);
    va_list ap;
    va_start(ap, fmt);
    vfprintf(stdout, fmt, ap);
    va_end(ap);
    putchar('\n');
    fflush(stdout);
}

int lanhost_debug_level(const char *path, int current) {
    FILE *f = fopen(path, "r");
    if (!f)
        return current;
    char line[8];
    if (fgets(line, sizeof line, f) && line[0] != '\0') {
        auto level = int32_t(strtol(line, nullptr, 10));
        if (level >= 0)
            current = level;
    }
    fclose(f);
    return current;
}

void agent_console(const char *fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    vprintf(fmt, ap);
    va_end(ap);
    fflush(stdout);
}
