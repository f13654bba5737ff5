#include "usb_shell.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "agent_log.h"

namespace {
constexpr size_t kShellLineSize = 512;
}

void usb_shell(const char *fmt, ...) {
    char line[kShellLineSize] = {};
    va_list ap;
    va_start(ap, fmt);
    int len = vsnprintf(line, sizeof line, fmt, ap);
    va_end(ap);
    if (len < 0 || size_t(len) >= sizeof line) {
        ZN_LOG(0, "shell line too long: %s\n", line);
        return;
    }
    int status = system(line);
    (void)status;
}
