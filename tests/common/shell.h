// Running commands from tests: output and exit status.
#pragma once

#include <sys/wait.h>

#include <chrono>
#include <cstdio>
#include <functional>
#include <string>
#include <thread>

namespace zntest {

struct Result {
    int status;
    std::string out;
};

// Runs cmd through the shell; standard error joins the output.
inline Result sh(const std::string &cmd) {
    Result r{-1, ""};
    FILE *p = popen((cmd + " 2>&1").c_str(), "r");
    if (!p)
        return r;
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, p)) > 0)
        r.out.append(buf, n);
    int st = pclose(p);
    r.status = WIFEXITED(st) ? WEXITSTATUS(st) : -1;
    return r;
}

// Polls cond every 50 ms for up to timeout; whether it came true.
inline bool eventually(const std::function<bool()> &cond, std::chrono::milliseconds timeout = std::chrono::seconds(10)) {
    auto end = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        if (cond())
            return true;
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
}

inline std::string file_text(const std::string &path) {
    std::string s;
    if (FILE *f = fopen(path.c_str(), "r")) {
        char buf[4096];
        size_t n;
        while ((n = fread(buf, 1, sizeof buf, f)) > 0)
            s.append(buf, n);
        fclose(f);
    }
    return s;
}

} // namespace zntest
