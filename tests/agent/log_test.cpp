// The host tracker's log: its thresholds and the debug file that sets them.
// The line format and the file's effect at run time are proven with the agent
// (agent_system_test).
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "agent_log.h"

namespace {

std::string printed(int module, int level, const char *text) {
    testing::internal::CaptureStdout();
    zn_event_lanhost_log(module, level, "someFunc", 42, "%s", text);
    return testing::internal::GetCapturedStdout();
}

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

TEST(LanhostLog, ThresholdsDecide) {
    zn_event_lanhost_log_init();
    EXPECT_EQ(printed(0, 1, "silent"), "") << "slot 0 starts at 0";
    EXPECT_EQ(printed(3, 0, "x"), "") << "no module 3, whatever the thresholds";
    EXPECT_EQ(printed(-1, 0, "x"), "");

    zn_event_lanhost_log_levels[0] = 3;
    for (int level : {1, 2, 3})
        EXPECT_NE(printed(0, level, "x"), "") << level;
    EXPECT_EQ(printed(0, 4, "x"), "");
    zn_event_lanhost_log_levels[0] = -1;
    EXPECT_EQ(printed(0, 0, "x"), "") << "signed comparison";
}

TEST(LanhostLog, DebugFileSetsSlotZero) {
    EXPECT_EQ(level_from("3\n", 0), 3);
    EXPECT_EQ(level_from("0", 3), 0);
    EXPECT_EQ(level_from("-2\n", 3), 3) << "negative: unchanged";
    EXPECT_EQ(level_from("abc\n", 3), 0) << "letters read as 0";
    EXPECT_EQ(level_from("", 3), 3) << "empty: unchanged";
    EXPECT_EQ(level_from("12345678\n", 0), 1234567) << "seven characters count";
    EXPECT_EQ(lanhost_debug_level("/nonexistent/debug", 2), 2);
}
