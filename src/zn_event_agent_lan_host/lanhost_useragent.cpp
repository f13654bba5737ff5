// Reports of the HTTP user-agent kernel module: device types from the
// User-Agent texts of LAN hosts, announced on the bus, and the DHCP options
// that clients asked for, kept in dhcpRequestEntry records until the store
// synchronisation of the host takes them.
#include "lanhost_useragent.h"

#include <linux/netlink.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "agent_log.h"
#include "lanhost_charset.h"
#include "lanhost_read.h"
#include "libzn.h"
#include "unique_fd.h"
#include "znsmsg.h"

namespace {

constexpr const char kGreeting[] = "user space lanhost http thread";
constexpr size_t kGreetingSize = 1040;
constexpr const char *kDhcpOptionKeyword = "bridge_dhcp_option";
constexpr const char *kUserAgentHeader = "User-Agent";
constexpr size_t kMacSize = 6;
constexpr size_t kEventTextSize = 32;

// The words that give a device type, tried in their order within a type.
struct DevtypeWords {
    int type;
    const char *words[4]; // ends at the first null
};
constexpr DevtypeWords kDevtypeWords[] = {
    {1, {"Phone", "Mobi", "Android"}},           {2, {"Pad"}}, {3, {"Mac", "Windows", "Moz"}}, {4, {"STB"}},
    {5, {"AN1202L", "360T6M", "CMCC", "E1600"}},
};

// How a reader types hosts and announces them: the types it tries, in
// order, the case of the MAC text and the event's code; its log lines carry
// the reader's name.
struct UaForm {
    const int *types;
    size_t typeCount;
    bool upperCaseMac;
    uint32_t code;
    const char *reader;
};
constexpr int kTrackerTypes[] = {1, 2, 3};
constexpr int kThreadTypes[] = {1, 2, 3, 5, 4};
constexpr UaForm kTrackerForm{kTrackerTypes, std::size(kTrackerTypes), false, 32,
                              ZN_FUNCTION_NAME(zn_event_lanhost_httpSockRead_cb)};
constexpr UaForm kThreadForm{kThreadTypes, std::size(kThreadTypes), true, 64,
                             ZN_FUNCTION_NAME(zn_event_lanhost_httpThread)};
#define TRACKER_LOG(level, ...) LANHOST_LOG_FOR(kTrackerForm.reader, level, __VA_ARGS__)

// The fields of a DHCP option report after the keyword, by position.
struct OptionField {
    size_t offset; // in dhcpRequestEntry
    size_t size;
    bool gb2312;
    const char *logName;
};
constexpr OptionField kOptionFields[] = {
    {offsetof(dhcpRequestEntry, requestedIp), sizeof(dhcpRequestEntry::requestedIp), false, "dhopt_requestedip"},
    {offsetof(dhcpRequestEntry, hostName), sizeof(dhcpRequestEntry::hostName), true, "hostname"},
    {offsetof(dhcpRequestEntry, hostNameAlt), sizeof(dhcpRequestEntry::hostNameAlt), false, "hostname"},
};

// The first type of the form with a word in text, regardless of case; 0 for none.
int devtype_of(const char *text, const UaForm &form) {
    for (size_t i = 0; i < form.typeCount; i++)
        for (const DevtypeWords &list : kDevtypeWords)
            if (list.type == form.types[i])
                for (const char *word : list.words)
                    if (word && strcasestr(text, word))
                        return list.type;
    return 0;
}

// Announces the host's type. *devtype, once found, serves the rest of the
// datagram without a further test.
void http_report(const uint8_t *mac, const char *text, const UaForm &form, int *devtype) {
    if (*devtype == 0)
        *devtype = devtype_of(text, form);
    if (*devtype == 0)
        return;
    char macText[kMacTextSize];
    lanhost_mac_text(mac, form.upperCaseMac, macText);
    char msg[kEventTextSize] = {};
    snprintf(msg, sizeof msg, "%s %d useragent", macText, *devtype);
    LANHOST_LOG_FOR(form.reader, 3, "msgBuf:%s", msg);
    if (zns_eventNotify(ZNS_EVENT_TEMP_UPDATE_MAC_DEVTYPE, form.code, msg) == -1)
        LANHOST_LOG_FOR(form.reader, 1, "send ZNS_EVENT_TEMP_UPDATE_MAC_DEVTYPE fail");
}

// Updates, or first makes, the entry of the MAC. false when no entry could
// be made: the rest of the datagram is dropped.
bool dhcp_option_report(const uint8_t *mac, const char *text) {
    char macText[kMacTextSize];
    lanhost_mac_text(mac, false, macText);
    dhcpRequestEntry *entry = list_find_dhcpRequestEntry(macText);
    if (!entry) {
        entry = list_add_dhcpRequestEntry(macText);
        if (!entry) {
            printf("%s %d dhcpRequestEntry malloc fail!!!! return 0;\n", kTrackerForm.reader, __LINE__);
            return false;
        }
        TRACKER_LOG(3, "SLIST_INSERT_HEAD mac:%s\n", macText);
    }
    lanhost_dhcp_option_update(entry, text, strlen(text));
    return true;
}

// The walk of one datagram, the same for both readers: each report
// (NLMSG_DONE) goes to on_report(mac, text) with its text cut at its zero or
// at the end of its message; other types are skipped. NLMSG_ERROR, a length
// below 16 or beyond the bytes left, or on_report returning false drops the
// rest of the datagram.
template <typename OnReport> void walk(const uint8_t *bytes, size_t len, const UaForm &form, OnReport on_report) {
    ByteCursor rest(bytes, len);
    for (;;) {
        ByteCursor head = rest;
        nlmsghdr hdr;
        ByteCursor msg;
        if (!head.take_into(&hdr) || hdr.nlmsg_len < sizeof hdr || !rest.sub(hdr.nlmsg_len, &msg))
            return;
        if (hdr.nlmsg_type == NLMSG_ERROR) {
            LANHOST_LOG_FOR(form.reader, 1, "recv nlmsg type is NLMSG_ERROR\n");
            return;
        }
        msg.skip(sizeof hdr);
        const uint8_t *mac = msg.take(kMacSize);
        if (hdr.nlmsg_type == NLMSG_DONE && mac) {
            char text[kUaReadSize];
            lanhost_copy_text(text, msg);
            if (!on_report(mac, text))
                return;
        }
        if (!rest.skip((4 - hdr.nlmsg_len % 4) % 4))
            return;
    }
}

} // namespace

void lanhost_ua_walk(const uint8_t *bytes, size_t len) {
    int devtype = 0;
    walk(bytes, len, kTrackerForm, [&devtype](const uint8_t *mac, const char *text) {
        TRACKER_LOG(3, "recv nlmsg data OK\n");
        char macText[kMacTextSize];
        lanhost_mac_text(mac, true, macText);
        TRACKER_LOG(3, "mac:%s\n", macText);
        TRACKER_LOG(3, "data:%s\n", text);
        if (strstr(text, kDhcpOptionKeyword))
            return dhcp_option_report(mac, text);
        if (strstr(text, kUserAgentHeader))
            http_report(mac, text, kTrackerForm, &devtype);
        return true;
    });
}

void lanhost_ua_thread_walk(const uint8_t *bytes, size_t len) {
    int devtype = 0;
    walk(bytes, len, kThreadForm, [&devtype](const uint8_t *mac, const char *text) {
        http_report(mac, text, kThreadForm, &devtype);
        return true;
    });
}

void lanhost_dhcp_option_update(dhcpRequestEntry *entry, const char *text, size_t len) {
    ByteCursor rest(text, len), field;
    if (!rest.field(',', &field)) // the keyword
        return;
    for (const OptionField &f : kOptionFields) {
        if (!rest.field(',', &field))
            return;
        const void *eq = memchr(field.peek(), '=', field.left());
        if (!eq)
            continue;
        field.skip(size_t(static_cast<const uint8_t *>(eq) - field.peek()) + 1);
        // What was converted before a fault counts, and that is nothing when
        // the converter can't even be opened.
        char now[sizeof(dhcpRequestEntry::hostName)] = {};
        if (f.gb2312)
            hostNameToUtf8(field.text(), field.left(), now, f.size);
        else
            lanhost_copy_text(now, f.size, field.text(), field.left());
        char *stored = reinterpret_cast<char *>(entry) + f.offset;
        if (strcmp(now, stored) != 0) {
            TRACKER_LOG(3, "!!!! set %s=%s!!!!", f.logName, now);
            lanhost_copy_text(stored, f.size, now);
        }
    }
}

void lanhost_ua_module_cmd(const char *verb) {
    utsname uts;
    memset(&uts, 0, sizeof uts);
    uname(&uts);
    char cmd[256];
    snprintf(cmd, sizeof cmd, "%s /lib/modules/%s/extra/http_UserAgent_check.ko > /dev/null 2> /dev/null", verb,
             uts.release);
    zn_do_cmd(cmd);
}

int lanhost_ua_greet(int fd) {
    auto *greeting = static_cast<nlmsghdr *>(calloc(1, kGreetingSize));
    if (!greeting)
        return -1;
    greeting->nlmsg_len = kGreetingSize;
    greeting->nlmsg_pid = uint32_t(getpid());
    memcpy(NLMSG_DATA(greeting), kGreeting, sizeof kGreeting);
    sockaddr_nl kernel;
    memset(&kernel, 0, sizeof kernel);
    kernel.nl_family = AF_NETLINK;
    iovec iov{greeting, kGreetingSize};
    msghdr msg;
    memset(&msg, 0, sizeof msg);
    msg.msg_name = &kernel;
    msg.msg_namelen = sizeof kernel;
    msg.msg_iov = &iov;
    msg.msg_iovlen = 1;
    sendmsg(fd, &msg, 0);
    free(greeting);
    return 0;
}

void zn_event_lanhost_httpSockRead_cb(evutil_socket_t fd, short, void *) {
    LANHOST_LOG(3, "start\n");
    uint8_t buf[kUaReadSize];
    // Woken by the loop, the read finds a datagram; it must never wait.
    const ssize_t n = lanhost_read_once(fd, buf, sizeof buf, {ReadFailure::kResult, false, 1, MSG_DONTWAIT});
    if (n >= 0)
        lanhost_ua_walk(buf, size_t(n));
}

void *zn_event_lanhost_httpThread(void *) {
    lanhost_ua_module_cmd("insmod");
    const UniqueFd fd(socket(AF_NETLINK, SOCK_RAW, kHttpAgentProtocol));
    if (fd) {
        sockaddr_nl addr;
        memset(&addr, 0, sizeof addr);
        addr.nl_family = AF_NETLINK;
        addr.nl_pid = uint32_t(getpid());
        // A port id already taken (by the tracker) is no reason to stop: the
        // greeting still goes out.
        static_cast<void>(bind(fd.get(), reinterpret_cast<sockaddr *>(&addr), sizeof addr));
        if (lanhost_ua_greet(fd.get()) == 0) {
            for (;;) {
                uint8_t buf[kUaThreadReadSize] = {};
                const ssize_t n = recv(fd.get(), buf, sizeof buf, 0);
                if (n >= ssize_t(sizeof(nlmsghdr)))
                    lanhost_ua_thread_walk(buf, size_t(n));
            }
        }
    }
    lanhost_ua_module_cmd("rmmod");
    pthread_detach(pthread_self());
    return nullptr;
}
