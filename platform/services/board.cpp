// Board settings and the services with an outward effect, which a host has
// no hardware for: each records its call in the platform journal.
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "libzn.h"
#include "znp.h"

namespace {

// Copies a board setting into a caller's buffer of size bytes; empty text
// when the setting is absent.
int board_copy(const std::string &key, char *buf, size_t size) {
    if (!buf)
        return -1;
    std::string v;
    int rc = znp::board_get(key, &v);
    snprintf(buf, size, "%s", rc == 0 ? v.c_str() : "");
    return rc;
}

int board_int(const std::string &key, int fallback) {
    std::string v;
    if (znp::board_get(key, &v) != 0)
        return fallback;
    char *end = nullptr;
    long n = strtol(v.c_str(), &end, 10);
    return end != v.c_str() && *end == '\0' ? int(n) : fallback;
}

// An operator task handler: the call is journalled, and it fails for the one
// index that the board setting failKey names, so that its failure can be seen.
int operator_task(const char *service, const char *failKey, int index) {
    int rc = znp::journal(service, "%d", index);
    return board_int(failKey, INT_MIN) == index ? -1 : rc;
}

} // namespace

extern "C" {

int libzn_DbgLevel = 0;

// The level of the platform debug log, the board setting "libzn_DbgLevel",
// taken once when the library is loaded.
__attribute__((constructor)) static void libzn_load_debug_level() { libzn_DbgLevel = board_int("libzn_DbgLevel", 0); }

int libzn_sys_getProvince(char *buf) { return board_copy("province", buf, LIBZN_PROVINCE_LEN); }

int libzn_sys_getPonMode(void) { return board_int("ponmode", -1); }

int libzn_sys_getUsbNum(void) { return board_int("usbnum", 2); }

int libzn_board_config_content_read(const char *section, const char *key, char *buf) {
    if (!section || !key)
        return -1;
    return board_copy(std::string(section) + "." + key, buf, LIBZN_BOARD_VALUE_LEN);
}

int libzn_sys_led(int state) { return znp::journal("led", "%d", state); }

int libzn_sys_turnOffLed(uint8_t off) { return znp::journal("turnOffLed", "%u", off); }

int zns_cuc_set_sleep_mode(uint8_t enable) { return znp::journal("sleepMode", "%u", enable); }

int zns_cmcc_timedTask_handler(int index) { return operator_task("timedTask", "timedTask.failIndex", index); }

int zns_cmcc_deviceLimit_handler(int index) { return operator_task("deviceLimit", "deviceLimit.failIndex", index); }

int libzn_dosystem(const char *cmd) { return cmd ? system(cmd) : -1; }

int zn_do_cmd(const char *cmd) { return cmd ? system(cmd) : -1; }

void libzn_logPrint(const char *tag, const char *file, const char *func, int line, const char *fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    const std::string text = znp::format_line(fmt, ap);
    va_end(ap);
    fprintf(stderr, "[%s] %s:%d %s(): %s\n", tag ? tag : "libzn", file ? file : "?", line, func ? func : "?",
            text.c_str());
}

} // extern "C"
