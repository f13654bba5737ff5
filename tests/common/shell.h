// What tests do in a virtual gateway: run commands, wait for a condition
// with a deadline, start the unchanged agent and its peers, and read the
// Host objects the agent publishes.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>
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
    for (size_t n; (n = fread(buf, 1, sizeof buf, p)) > 0;)
        r.out.append(buf, n);
    const int st = pclose(p);
    r.status = WIFEXITED(st) ? WEXITSTATUS(st) : -1;
    return r;
}

// Success when cmd exits with 0; else the command and its output tell why.
inline testing::AssertionResult run(const std::string &cmd) {
    const Result r = sh(cmd);
    if (r.status == 0)
        return testing::AssertionSuccess();
    return testing::AssertionFailure() << cmd << "\nexited with " << r.status << ":\n" << r.out;
}

// Polls cond every 50 ms for up to timeout; whether it came true.
inline bool eventually(const std::function<bool()> &cond,
                       std::chrono::milliseconds timeout = std::chrono::seconds(10)) {
    const auto end = std::chrono::steady_clock::now() + timeout;
    while (!cond()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return true;
}

// The parts joined by "|": several values compared at once.
inline std::string joined(std::initializer_list<std::string> parts) {
    std::string out;
    for (const std::string &p : parts)
        out += (&p == parts.begin() ? "" : "|") + p;
    return out;
}

// The whole file, empty when there is none.
inline std::string file_text(const std::string &path) {
    std::ifstream f(path);
    std::stringstream text;
    text << f.rdbuf();
    return text.str();
}

constexpr const char *kAgentOut = "/tmp/agent.out";

// path with no arguments, standard output and error in the file out.
inline pid_t start_process(const char *path, const char *out) {
    const pid_t pid = fork();
    if (pid == 0) {
        const int fd = open(out, O_WRONLY | O_CREAT | O_TRUNC, 0644);
        dup2(fd, 1), dup2(fd, 2);
        execl(path, path, nullptr);
        _exit(127);
    }
    return pid;
}

inline void stop_process(pid_t pid) {
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
}

// Whether the agent that start() starts has flushed the neighbour table of br0
// in time: the flush is the last step before its loop runs, so what happens
// on the LAN from then on reaches it. An entry planted before the start shows
// the flush. Without br0 the tracker ends at once, and there is nothing to
// wait for.
inline bool starts_flushed(const std::function<void()> &start) {
    const bool lan = sh("ip neigh replace 192.168.1.254 lladdr 02:00:00:00:99:99 dev br0 nud stale").status == 0;
    start();
    return !lan || eventually([] { return sh("ip neigh show 192.168.1.254 dev br0").out.empty(); });
}

inline pid_t start_agent(const char *out = kAgentOut) {
    pid_t pid = -1;
    if (!starts_flushed([&] { pid = start_process(ZN_BUILD_DIR "/bin/zn_event_agent", out); })) {
        stop_process(pid);
        return -1;
    }
    return pid;
}

// dnsmasq serving br0 with leases of seconds; its lease-change script reports
// each lease to the agent.
inline testing::AssertionResult start_dnsmasq(int seconds) {
    return run("dnsmasq --port=0 --interface=br0 --bind-interfaces --dhcp-range=192.168.1.100,192.168.1.150," +
               std::to_string(seconds) + " --dhcp-leasefile=/etc/dnsmasq.leases --dhcp-script=" ZN_SOURCE_DIR
               "/tools/vgw/dnsmasq_lease.sh --pid-file=/tmp/dnsmasq.pid --log-facility=/tmp/dnsmasq.log");
}

// The address that udhcpc obtained in the LAN host, empty without a lease.
inline std::string take_lease(const std::string &host, const std::string &options = "") {
    const std::string out = sh("vgw host exec " + host + " udhcpc -i eth0 -n -q -t 5 -s /bin/true " + options).out;
    const size_t at = out.find("lease of ");
    return at == std::string::npos ? "" : out.substr(at + 9, out.find(' ', at + 9) - at - 9);
}

using Object = std::map<std::string, std::string>;

// The objects of one table under Hosts by index, every parameter as text and
// a MAC in lower case. Host and OfflineHost come from the host table viewer,
// as scripts read them; the other tables from a store listing.
inline std::map<int, Object> hosts_table(const std::string &table) {
    const bool viewed = table == "Host" || table == "OfflineHost";
    const std::string listing =
        viewed ? "znhosts --json | jq -r '." + std::string(table == "Host" ? "hosts" : "offline") +
                     "[] | .index as $i | to_entries[] | \"\\($i).\\(.key)=\\(.value)\"'"
               : "znsUtil -l InternetGatewayDevice.LANDevice.1.Hosts | sed -n 's/^InternetGatewayDevice"
                 ".LANDevice.1.Hosts." + table + "\\.//p'";
    std::map<int, Object> objects;
    std::istringstream lines(sh(listing).out);
    for (std::string line; std::getline(lines, line);) {
        const size_t dot = line.find('.'), eq = line.find('=');
        if (dot < eq && eq != std::string::npos && isdigit(static_cast<unsigned char>(line[0])))
            objects[std::stoi(line)][line.substr(dot + 1, eq - dot - 1)] = line.substr(eq + 1);
    }
    return objects;
}

// The object of the table whose MACAddress is mac; empty when there is none.
inline Object host_object(const std::string &mac, const std::string &table = "Host") {
    for (auto &[index, object] : hosts_table(table))
        if (object["MACAddress"] == mac)
            return object;
    return {};
}

// What of want, "Name=value;Name=value", the object has otherwise, as
// "Name=value (want value) "; empty when it has all of want.
inline std::string differences(const Object &have, const std::string &want) {
    std::string out;
    std::istringstream pairs(want);
    for (std::string pair; std::getline(pairs, pair, ';');) {
        const size_t eq = pair.find('=');
        const auto it = have.find(pair.substr(0, eq));
        const std::string got = it == have.end() ? "<none>" : it->second;
        if (got != pair.substr(eq + 1))
            out += pair.substr(0, eq) + "=" + got + " (want " + pair.substr(eq + 1) + ") ";
    }
    return out;
}

inline std::string hosts_count() {
    return sh("znsUtil -g InternetGatewayDevice.LANDevice.1.Hosts HostNumberOfEntries | tr -d '\\n'").out;
}

} // namespace zntest
