// znkernel: the side of the gateway's kernel components that a virtual
// gateway lacks. Each command sends what a component would, to the sockets
// it would send it to; the preload library gives processes those sockets.
#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/rtnetlink.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "kemu.h"

namespace {

using Datagram = std::vector<uint8_t>;

constexpr const char *kUsage =
    "usage: znkernel pon wan-change MODE            PON driver, to group 1 of protocol 25: WAN mode now MODE\n"
    "       znkernel pon recovered TYPE             PON driver: recovered from an error of TYPE\n"
    "       znkernel pon raw HEX                    PON driver: these bytes\n"
    "       znkernel pon off|on                     PON driver: absent (protocol 25 refused), or back\n"
    "       znkernel ua report MAC TEXT [MAC TEXT]...\n"
    "                                               user-agent module, to each greeter on protocol 31:\n"
    "                                               reports in one datagram\n"
    "       znkernel ua raw HEX\n"
    "       znkernel bridgedata report IFNAME DMAC SMAC SESSIONID IP DNS [IFNAME ...]...\n"
    "                                               bridge data component, to each connected listener\n"
    "                                               on protocol 29: reports in one datagram\n"
    "       znkernel bridgedata raw HEX\n"
    "       znkernel wlan-leave [--pid PID] MAC     wireless driver: MAC left, to the agent's routing socket\n"
    "       znkernel macfilter stat [MAC COUNT]...  MAC filter: set its statistics\n"
    "       znkernel macfilter table-show           MAC filter: the commands written to its table\n"
    "       znkernel macfilter off                  MAC filter: gone, as on a gateway without it\n"
    "       znkernel button KEY hold MS             buttons, to /dev/input/event0: press, auto-repeats\n"
    "                                               with the last one MS ms after the press, release\n"
    "       znkernel button KEY tap MS              press and release MS ms later, no auto-repeat\n"
    "       znkernel button raw TYPE CODE VALUE [TYPE CODE VALUE]...\n"
    "                                               these records, 1 ms apart\n"
    "                                               KEY: wlan-wps wifi reset wps led, or a key code\n"
    "       znkernel log                            what processes sent to the components\n";

using kemu::kMacfilterDir;
using kemu::kMacfilterStat;
using kemu::kMacfilterTable;
constexpr const char *kMacfilterHeading = "mac                count\n";
constexpr const char *kProcNetlink = "/proc/net/netlink";

// The gateway's buttons by their key codes.
struct Key {
    const char *name;
    uint16_t code;
};
constexpr Key kKeys[] = {{"wlan-wps", 237}, {"wifi", 238}, {"reset", 408}, {"wps", 529}, {"led", 594}};
constexpr uint16_t kEvKey = 1;
constexpr int32_t kKeyRelease = 0, kKeyPress = 1, kKeyRepeat = 2;
// The input layer's auto-repeat: a first repeat after 250 ms, then every 33 ms.
constexpr int64_t kRepeatDelayMs = 250, kRepeatPeriodMs = 33;
// A held key is let go before its next repeat would come.
constexpr int64_t kReleaseAfterRepeatMs = 10;
constexpr int kInputWaitMs = 5000; // for a reader to make room in the FIFO

struct UsageError {};
struct Failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

[[noreturn]] void bad(const std::string &what, const char *text) { throw Failure(what + ": \"" + text + "\""); }

// ---- checked parsing of arguments ------------------------------------------

// Two hexadecimal digits, checked by the caller.
uint8_t hex_byte(const char *two) { return uint8_t(strtoul(std::string(two, 2).c_str(), nullptr, 16)); }

// "xx:xx:xx:xx:xx:xx", either case.
void parse_mac(const char *text, uint8_t mac[6]) {
    bool ok = strlen(text) == 17;
    for (int i = 0; ok && i < 17; i++)
        ok = i % 3 == 2 ? text[i] == ':' : isxdigit(static_cast<unsigned char>(text[i])) != 0;
    if (!ok)
        bad("not a MAC address", text);
    for (size_t i = 0; i < 6; i++)
        mac[i] = hex_byte(text + 3 * i);
}

// Decimal, or hexadecimal after "0x".
uint32_t parse_uint(const char *text, uint32_t max, const char *what) {
    char *end = nullptr;
    errno = 0;
    unsigned long long v = isdigit(static_cast<unsigned char>(text[0])) ? strtoull(text, &end, 0) : 0;
    if (!end || *end || errno || v > max)
        bad(std::string(what) + " must be a number from 0 to " + std::to_string(max), text);
    return uint32_t(v);
}

int parse_int(const char *text, const char *what) {
    char *end = nullptr;
    errno = 0;
    long v = strtol(text, &end, 10);
    if (!*text || *end || errno || v < INT32_MIN || v > INT32_MAX)
        bad(std::string(what) + " must be a decimal number", text);
    return int(v);
}

void parse_ipv4(const char *text, uint8_t out[4]) {
    if (inet_pton(AF_INET, text, out) != 1)
        bad("not an IPv4 address", text);
}

Datagram parse_hex(const char *text) {
    size_t n = strlen(text);
    if (n == 0 || n % 2 || n / 2 > kemu::kMaxDatagram || strspn(text, "0123456789abcdefABCDEF") != n)
        bad("not an even number of hexadecimal digits (at most " + std::to_string(2 * kemu::kMaxDatagram) + ")", text);
    Datagram d(n / 2);
    for (size_t i = 0; i < d.size(); i++)
        d[i] = hex_byte(text + 2 * i);
    return d;
}

// ---- forming datagrams -----------------------------------------------------

// Appends one message, at the next multiple of 4 as netlink places them.
template <typename T> void append(Datagram *d, T msg, const std::string &tail = "") {
    msg.hdr.nlmsg_len = uint32_t(sizeof msg + tail.size());
    d->resize(NLMSG_ALIGN(d->size()));
    const auto *p = reinterpret_cast<const uint8_t *>(&msg);
    d->insert(d->end(), p, p + sizeof msg);
    d->insert(d->end(), tail.begin(), tail.end());
    if (d->size() > kemu::kMaxDatagram)
        throw Failure("more than " + std::to_string(kemu::kMaxDatagram) + " bytes in one datagram");
}

Datagram pon_event(uint8_t type, uint32_t value) {
    kemu::PonEvent e{};
    e.type = type;
    memcpy(e.value, &value, sizeof e.value);
    Datagram d;
    append(&d, e);
    return d;
}

// One report from its words: MAC TEXT.
void ua_report(Datagram *d, char **words) {
    kemu::UaReportHead r{};
    r.hdr.nlmsg_type = NLMSG_DONE;
    parse_mac(words[0], r.mac);
    append(d, r, std::string(words[1], strlen(words[1]) + 1));
}

// One report from its words: IFNAME DMAC SMAC SESSIONID IP DNS.
void bridgedata_report(Datagram *d, char **words) {
    kemu::BridgeDataReport r{};
    r.hdr.nlmsg_type = NLMSG_DONE;
    if (!*words[0] || strlen(words[0]) >= sizeof r.ifname)
        bad("IFNAME must have 1 to " + std::to_string(sizeof r.ifname - 1) + " characters", words[0]);
    memcpy(r.ifname, words[0], strlen(words[0]));
    parse_mac(words[1], r.dmac);
    parse_mac(words[2], r.smac);
    r.session_id = htons(uint16_t(parse_uint(words[3], 0xffff, "SESSIONID")));
    parse_ipv4(words[4], r.ip);
    parse_ipv4(words[5], r.dns);
    append(d, r);
}

// ---- who listens -----------------------------------------------------------

std::vector<kemu::Port> ports_where(int protocol, const std::function<bool(const kemu::Port &)> &pick) {
    std::vector<kemu::Port> out;
    for (const kemu::Port &p : kemu::ports(protocol))
        if (pick(p))
            out.push_back(p);
    return out;
}

std::vector<kemu::Port> pon_listeners() {
    return ports_where(kemu::kProtoPon, [](const kemu::Port &p) { return (p.groups & kemu::kPonGroups) != 0; });
}

// The module reports to the port id in the header of each greeting.
std::vector<kemu::Port> ua_listeners() {
    std::set<uint32_t> greeters;
    for (const kemu::LogEntry &e : kemu::read_log())
        if (e.protocol == kemu::kProtoUserAgent && e.kind == "greeting")
            greeters.insert(e.pid);
    return ports_where(kemu::kProtoUserAgent, [&](const kemu::Port &p) { return greeters.count(p.id) != 0; });
}

// Connected are the pids of connect commands not followed by a disconnect.
std::vector<kemu::Port> bridgedata_listeners() {
    std::set<uint32_t> connected;
    for (const kemu::LogEntry &e : kemu::read_log()) {
        if (e.protocol != kemu::kProtoBridgeData)
            continue;
        if (e.kind == "connect")
            connected.insert(e.pid);
        else if (e.kind == "disconnect")
            connected.erase(e.pid);
    }
    return ports_where(kemu::kProtoBridgeData, [&](const kemu::Port &p) { return connected.count(p.id) != 0; });
}

// Sends as the kernel, without waiting: a full receive queue loses the
// datagram, as a netlink socket's full buffer does. 0 when one arrived.
int deliver(const std::vector<kemu::Port> &to, Datagram d, uint32_t groups, const char *nobody) {
    if (to.empty())
        throw Failure(nobody);
    int fd = kemu::kernel_socket(groups);
    if (fd < 0)
        throw Failure(std::string("no socket to send from: ") + strerror(errno));
    d.resize(NLMSG_ALIGN(d.size()));
    int delivered = 0;
    for (const kemu::Port &p : to) {
        socklen_t len;
        sockaddr_un a = kemu::unix_address(p.path, &len);
        if (sendto(fd, d.data(), d.size(), MSG_DONTWAIT, reinterpret_cast<sockaddr *>(&a), len) >= 0)
            delivered++;
        else
            fprintf(stderr, "znkernel: port %u: %s\n", p.id, strerror(errno));
    }
    close(fd);
    return delivered ? 0 : 1;
}

void write_file(const char *path, const std::string &text) {
    std::string tmp = std::string(path) + ".new";
    FILE *f = fopen(tmp.c_str(), "we");
    bool ok = f && fputs(text.c_str(), f) >= 0;
    if (!f || fclose(f) != 0 || !ok || rename(tmp.c_str(), path) != 0)
        throw Failure(std::string(path) + ": " + strerror(errno));
}

// ---- key records -------------------------------------------------------------

using Records = std::vector<kemu::InputRecord>;

int64_t now_ms() {
    timespec ts{};
    clock_gettime(CLOCK_REALTIME, &ts);
    return int64_t(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

kemu::InputRecord input_record(int64_t ms, uint16_t type, uint16_t code, int32_t value) {
    kemu::InputRecord r{};
    r.input_event_sec = ms / 1000;
    r.input_event_usec = ms % 1000 * 1000;
    r.type = type;
    r.code = code;
    r.value = value;
    return r;
}

uint16_t parse_key(const char *text) {
    for (const Key &k : kKeys)
        if (strcmp(text, k.name) == 0)
            return k.code;
    return uint16_t(parse_uint(text, 0xffff, "KEY"));
}

// A press, then for a hold the repeats up to one exactly ms after the press,
// then the release.
Records key_press(uint16_t code, int64_t ms, bool hold) {
    const int64_t t0 = now_ms();
    Records r{input_record(t0, kEvKey, code, kKeyPress)};
    if (hold) {
        for (int64_t at = kRepeatDelayMs; at < ms; at += kRepeatPeriodMs)
            r.push_back(input_record(t0 + at, kEvKey, code, kKeyRepeat));
        r.push_back(input_record(t0 + ms, kEvKey, code, kKeyRepeat));
    }
    r.push_back(input_record(t0 + ms + (hold ? kReleaseAfterRepeatMs : 0), kEvKey, code, kKeyRelease));
    return r;
}

// One write per record, so that a reader of one record always gets a whole one.
int write_records(const Records &records) {
    int fd = open(kemu::kInputDevice, O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        throw Failure(std::string(kemu::kInputDevice) + ": " + strerror(errno));
    for (const kemu::InputRecord &rec : records) {
        pollfd room{fd, POLLOUT, 0};
        ssize_t n = write(fd, &rec, sizeof rec);
        while (n < 0 && errno == EAGAIN && poll(&room, 1, kInputWaitMs) > 0)
            n = write(fd, &rec, sizeof rec);
        if (n != ssize_t(sizeof rec)) {
            const char *why = n < 0 && errno != EAGAIN ? strerror(errno) : "full, nobody reads it";
            close(fd);
            throw Failure(std::string(kemu::kInputDevice) + ": " + why);
        }
    }
    close(fd);
    return 0;
}

// ---- commands ----------------------------------------------------------------

int cmd_button(int argc, char **argv) {
    Records r;
    if (argc >= 4 && strcmp(argv[0], "raw") == 0 && (argc - 1) % 3 == 0) {
        const int64_t t0 = now_ms();
        for (int i = 1; i < argc; i += 3) {
            const auto type = uint16_t(parse_uint(argv[i], 0xffff, "TYPE"));
            const auto code = uint16_t(parse_uint(argv[i + 1], 0xffff, "CODE"));
            r.push_back(input_record(t0 + i / 3, type, code, parse_int(argv[i + 2], "VALUE")));
        }
    } else if (argc == 3 && (strcmp(argv[1], "hold") == 0 || strcmp(argv[1], "tap") == 0)) {
        r = key_press(parse_key(argv[0]), parse_uint(argv[2], INT32_MAX, "MS"), strcmp(argv[1], "hold") == 0);
    } else {
        throw UsageError();
    }
    return write_records(r);
}

// A kernel without the PON driver, or with it again.
int cmd_pon_presence(const std::string &sub) {
    const std::string path = kemu::refusal_path(kemu::kProtoPon);
    if (sub == "off" && kemu::mkdirs(kemu::kRoot) == 0)
        write_file(path.c_str(), "");
    else if (sub == "off" || (unlink(path.c_str()) != 0 && errno != ENOENT))
        throw Failure(path + ": " + strerror(errno));
    return 0;
}

int cmd_pon(const std::string &sub, int argc, char **argv) {
    if (argc == 0 && (sub == "off" || sub == "on"))
        return cmd_pon_presence(sub);
    if (argc != 1)
        throw UsageError();
    Datagram d;
    if (sub == "wan-change")
        d = pon_event(kemu::kPonWanChange, parse_uint(argv[0], UINT32_MAX, "MODE"));
    else if (sub == "recovered")
        d = pon_event(kemu::kPonRecovered, parse_uint(argv[0], 255, "TYPE"));
    else if (sub == "raw")
        d = parse_hex(argv[0]);
    else
        throw UsageError();
    return deliver(pon_listeners(), d, kemu::kPonGroups, "no socket of protocol 25 in group 1");
}

// A component whose "report" takes a fixed number of words per report.
struct ReportChannel {
    int words;
    void (*report)(Datagram *d, char **words);
    std::vector<kemu::Port> (*listeners)();
    const char *nobody; // the failure when no one listens
};

constexpr ReportChannel kUa{2, ua_report, ua_listeners, "no process has greeted the user-agent module on protocol 31"};
constexpr ReportChannel kBridgeData{6, bridgedata_report, bridgedata_listeners,
                                    "no listener has connected to the bridge data component on protocol 29"};

int cmd_reports(const ReportChannel &c, const std::string &sub, int argc, char **argv) {
    Datagram d;
    if (sub == "report" && argc >= c.words && argc % c.words == 0) {
        for (int i = 0; i < argc; i += c.words)
            c.report(&d, argv + i);
    } else if (sub == "raw" && argc == 1) {
        d = parse_hex(argv[0]);
    } else {
        throw UsageError();
    }
    return deliver(c.listeners(), d, 0, c.nobody);
}

// Routing sockets in the neighbour group whose port id carries the agent's bits.
std::vector<uint32_t> agent_route_ports() {
    std::vector<uint32_t> out;
    FILE *f = fopen(kProcNetlink, "re");
    if (!f)
        throw Failure(std::string(kProcNetlink) + ": " + strerror(errno));
    char line[256];
    while (fgets(line, sizeof line, f)) {
        int protocol;
        uint32_t port, groups;
        if (sscanf(line, "%*s %d %u %x", &protocol, &port, &groups) == 3 && protocol == NETLINK_ROUTE &&
            (port & kemu::kAgentRoutePortBits) == kemu::kAgentRoutePortBits && (groups & kemu::kNeighGroups))
            out.push_back(port);
    }
    fclose(f);
    return out;
}

int cmd_wlan_leave(int argc, char **argv) {
    std::vector<uint32_t> to;
    if (argc == 3 && strcmp(argv[0], "--pid") == 0)
        to.push_back(parse_uint(argv[1], 0x3fffff, "PID") | kemu::kAgentRoutePortBits);
    else if (argc == 1)
        to = agent_route_ports();
    else
        throw UsageError();
    const char *mac_text = argv[argc - 1];
    kemu::WlanLeave m{};
    uint8_t mac[6];
    parse_mac(mac_text, mac);
    m.hdr.nlmsg_len = sizeof m;
    m.hdr.nlmsg_type = kemu::kWlanLeaveType;
    memcpy(m.mac, mac_text, strlen(mac_text));
    if (to.empty())
        throw Failure("no routing netlink socket in group 4 with a port id of pid | 0x640000");
    int fd = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
    if (fd < 0)
        throw Failure(std::string("routing netlink socket: ") + strerror(errno));
    int delivered = 0;
    for (uint32_t port : to) {
        sockaddr_nl a{};
        a.nl_family = AF_NETLINK;
        a.nl_pid = port;
        if (sendto(fd, &m, sizeof m, MSG_DONTWAIT, reinterpret_cast<sockaddr *>(&a), sizeof a) >= 0)
            delivered++;
        else
            fprintf(stderr, "znkernel: port %#x: %s\n", port, strerror(errno));
    }
    close(fd);
    return delivered ? 0 : 1;
}

void print_file(const char *path) {
    if (FILE *f = fopen(path, "re")) {
        char buf[4096];
        size_t n;
        while ((n = fread(buf, 1, sizeof buf, f)) > 0)
            fwrite(buf, 1, n, stdout);
        fclose(f);
    }
}

int cmd_macfilter(const std::string &sub, int argc, char **argv) {
    if (sub == "stat" && argc % 2 == 0) {
        std::string text = kMacfilterHeading;
        for (int i = 0; i < argc; i += 2) {
            uint8_t mac[6];
            parse_mac(argv[i], mac);
            text += std::string(argv[i]) + " " + std::to_string(parse_int(argv[i + 1], "COUNT")) + "\n";
        }
        if (kemu::mkdirs(kMacfilterDir) != 0)
            throw Failure(std::string(kMacfilterDir) + ": " + strerror(errno));
        write_file(kMacfilterStat, text);
        if (access(kMacfilterTable, F_OK) != 0)
            write_file(kMacfilterTable, "");
        return 0;
    }
    if (sub == "table-show" && argc == 0) {
        if (access(kMacfilterDir, F_OK) != 0)
            throw Failure("the MAC filter is off; \"znkernel macfilter stat\" puts it in place");
        print_file(kMacfilterTable);
        return 0;
    }
    if (sub == "off" && argc == 0) {
        unlink(kMacfilterStat);
        unlink(kMacfilterTable);
        rmdir(kMacfilterDir);
        return 0;
    }
    throw UsageError();
}

int run(int argc, char **argv) {
    std::string area = argc > 1 ? argv[1] : "";
    if (area == "log" && argc == 2) {
        print_file(kemu::kLogPath);
        return 0;
    }
    if (area == "wlan-leave")
        return cmd_wlan_leave(argc - 2, argv + 2);
    if (area == "button")
        return cmd_button(argc - 2, argv + 2);
    if (argc < 3)
        throw UsageError();
    std::string sub = argv[2];
    if (area == "pon")
        return cmd_pon(sub, argc - 3, argv + 3);
    if (area == "ua")
        return cmd_reports(kUa, sub, argc - 3, argv + 3);
    if (area == "bridgedata")
        return cmd_reports(kBridgeData, sub, argc - 3, argv + 3);
    if (area == "macfilter")
        return cmd_macfilter(sub, argc - 3, argv + 3);
    throw UsageError();
}

} // namespace

int main(int argc, char **argv) {
    try {
        return run(argc, argv);
    } catch (const UsageError &) {
        fputs(kUsage, stderr);
        return 2;
    } catch (const Failure &e) {
        fprintf(stderr, "znkernel: %s\n", e.what());
        return 1;
    }
}
