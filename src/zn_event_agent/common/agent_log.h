// The agent's log channels. The module log belongs to the platform; the
// host tracker's own log prints to standard output under a threshold that a
// file changes at run time.
#pragma once

#include "libzn.h"
#include "znsmsg.h"

#define ZN_MODULE_NAME "zns_event_agent"

// Module log with the caller's file, function and line.
#define ZN_LOG(level, ...) zns_log_print(__FILE__, __func__, __LINE__, (level), __VA_ARGS__)

// Where a call comes from. A helper that logs for its caller takes one as its
// last argument, defaulted ({}), so that the line carries the caller's file,
// function and line.
struct CallSite {
    const char *file;
    const char *function;
    int line;
    CallSite(const char *f = __builtin_FILE(), const char *fn = __builtin_FUNCTION(), int l = __builtin_LINE())
        : file(f), function(fn), line(l) {}
};
#define ZN_LOG_AT(site, level, ...) zns_log_print((site).file, (site).function, (site).line, (level), __VA_ARGS__)

// Host tracker log, module index 0.
#define LANHOST_LOG(level, ...) zn_event_lanhost_log(0, (level), __func__, __LINE__, __VA_ARGS__)

// The lines of a helper carry the name of the function whose work it does,
// so that each line reads as written by that function. _FOR takes the name
// as text; _AS takes the function itself.
#define LANHOST_LOG_FOR(name, level, ...)    zn_event_lanhost_log(0, (level), (name), __LINE__, __VA_ARGS__)
#define LANHOST_LOG_AS(function, level, ...) LANHOST_LOG_FOR(ZN_FUNCTION_NAME(function), level, __VA_ARGS__)
#define ZN_LOG_AS(function, level, ...)                                                                                \
    zns_log_print(__FILE__, ZN_FUNCTION_NAME(function), __LINE__, (level), __VA_ARGS__)
// The name of a function of this program, which must exist.
#define ZN_FUNCTION_NAME(function) (static_cast<void>(&(function)), #function)

constexpr int kLanhostLogModules = 3;
extern int zn_event_lanhost_log_levels[kLanhostLogModules];

// Thresholds 0, 3, 3: slot 0, the one in use, starts silent.
void zn_event_lanhost_log_init();
// Prints "[time][zn_even_agent]func#line text\n" when the module's threshold >= level.
void zn_event_lanhost_log(int module, int level, const char *func, int line, const char *fmt, ...)
    __attribute__((format(printf, 5, 6)));
// The threshold that the debug file at path asks for, or current when it
// asks for none: a first line of up to 7 characters read as a decimal number,
// taken when it is not negative.
int lanhost_debug_level(const char *path, int current);

// Console: button and PON traces on standard output, flushed line by line
// so that a redirected output shows them as they happen.
void agent_console(const char *fmt, ...) __attribute__((format(printf, 1, 2)));

// Platform debug log, guarded by the level the platform exports: errors
// above 0, debug lines above 2.
#define ZN_DBG_ERROR(...)                                                                                              \
    do {                                                                                                               \
        if (libzn_DbgLevel > 0)                                                                                        \
            libzn_logPrint("libzn Error", __FILE__, __func__, __LINE__, __VA_ARGS__);                                  \
    } while (0)
#define ZN_DBG_DEBUG(...)                                                                                              \
    do {                                                                                                               \
        if (libzn_DbgLevel > 2)                                                                                        \
            libzn_logPrint("libzn Debug", __FILE__, __func__, __LINE__, __VA_ARGS__);                                  \
    } while (0)
