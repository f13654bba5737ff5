// Processes that system tests start inside the sandbox, the real agent
// among them, with standard output and error in a file.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

namespace zntest {

inline pid_t start_process(const char *path, const char *out) {
    pid_t pid = fork();
    if (pid == 0) {
        int fd = open(out, O_WRONLY | O_CREAT | O_TRUNC, 0644);
        dup2(fd, 1);
        dup2(fd, 2);
        execl(path, path, nullptr);
        _exit(127);
    }
    return pid;
}

inline pid_t start_agent(const char *out = "/tmp/agent.out") {
    return start_process(ZN_BUILD_DIR "/bin/zn_event_agent", out);
}

inline void stop_process(pid_t pid) {
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
}

} // namespace zntest
