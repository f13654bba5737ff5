// The host tracker's log: the debug file that sets its threshold.
// The line format and the file's effect at run time are proven with the agent
// (agent_system_test).
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "agent_log.h"

namespace {

int level_from(const char *content, int current) {
    char path[] = ZN_BUILD_DIR "/tests/lanhost_debug_XXXXXX";
    int fd = mkstemp(path);
    EXPECT_GE(fd, 0);
    EXPECT_EQ(write(fd, content, strlen(content)), ssize_t(strlen(content)));
    close(fd);
    int level = lanhost_debug_level(path, current);
    unlink(path);
    return level;
}

} // namespace

TEST(LanhostLog, DebugFileSetsSlotZero) {
    EXPECT_EQ(level_from("3\n", 0), 3);
    EXPECT_EQ(level_from("0", 3), 0);
    EXPECT_EQ(level_from("-2\n", 3), 3) << "negative: unchanged";
    EXPECT_EQ(level_from("abc\n", 3), 0) << "letters read as 0";
    EXPECT_EQ(level_from("", 3), 3) << "empty: unchanged";
    EXPECT_EQ(level_from("12345678\n", 0), 1234567) << "seven characters count";
    EXPECT_EQ(lanhost_debug_level("/nonexistent/debug", 2), 2);
}
