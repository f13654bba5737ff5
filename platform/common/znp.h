// What the platform's libraries and tools share: its fixed paths, the
// journal of outward effects and the board settings file.
#pragma once

#include <cstdarg>
#include <string>

namespace znp {

constexpr const char *kBoardFile = "/etc/zn_board.conf";
constexpr const char *kJournalFile = "/var/log/zn_platform.journal";
constexpr const char *kBusDir = "/run/zns_bus";
constexpr const char *kLogLevelDir = "/run/zns_log";

// One line "SECONDS.MILLIS PID SERVICE ARGS" appended with a single write,
// so lines of concurrent processes never mix. 0 or -1.
int journal(const char *service, const char *fmt, ...) __attribute__((format(printf, 2, 3)));

// Board settings: "KEY=VALUE" lines. get: 0 and the value, or -1.
int board_get(const std::string &key, std::string *value);
// Replaces or adds the key; keys and values hold no line break or '='
// in a key. 0 or -1.
int board_set(const std::string &key, const std::string &value);
int board_list(std::string *out);

// fmt with its values, without trailing line ends: the caller adds one.
std::string format_line(const char *fmt, va_list ap) __attribute__((format(printf, 1, 0)));

} // namespace znp
