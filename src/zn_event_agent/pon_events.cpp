#include "pon_events.h"

#include <linux/netlink.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "agent_log.h"
#include "libzn.h"
#include "unique_fd.h"
#include "znsmsg.h"
#include "znsutils.h"

namespace {

constexpr int kPonProtocol = 25;
constexpr uint32_t kPonGroup = 1;
constexpr size_t kPonRecvRoom = 1552;
constexpr int kSelectSeconds = 1;
constexpr size_t kCommandRoom = 256;
constexpr const char *kEthWanMarker = "/userconfig/config/ethwan";
constexpr int kPonModeTested = 7; // the configured mode under which the store follows

// Fields of the payload record.
constexpr size_t kTypeAt = 2; // then the value at an odd offset: a 32-bit mode, or a type byte
constexpr uint8_t kPonEventWanChange = 9;
constexpr uint8_t kPonEventRecovered = 14;

enum ModeIndex { kEpon = 0, kGpon = 1 };
constexpr char kModeNames[2][32] = {"EPON", "GPON"};
struct WanMode {
    uint32_t value;
    ModeIndex index;
};
constexpr WanMode kWanModes[] = {{2, kEpon}, {7, kEpon}, {8, kEpon}, {1, kGpon}, {3, kGpon}, {4, kGpon}};

struct Recovery {
    uint8_t type;
    const char *line;    // system log, LOG_ERR
    const char *command; // or nullptr
};
constexpr Recovery kRecoveries[] = {
    {0, "sdk error, but recover now, ignore it\n", nullptr},
    {1, "sdk error, need to clear software flow table\n", "zncli sys flushnat"},
    {2, "sdk error, need to rebuild wifi\n", "reboot"},
    {3, "sdk error, need to reset device\n", "reboot"},
};

// The store values that follow the PON mode, each set through znsUtil.
struct UplinkValue {
    const char *path;
    const char *param;
};
constexpr UplinkValue kUplinkValues[] = {
    {"InternetGatewayDevice.WANDevice.1.WANCommonInterfaceConfig", "WANAccessType"},
    {"InternetGatewayDevice.WANDevice.1.WANCommonInterfaceConfig", "X_ZN_WANAccessType"},
    {"InternetGatewayDevice.DeviceInfo", "X_CMCC_UpLinkType"},
};

int ponEventSocket = -1;
uint8_t ponApi_event[kPonEventRoom]; // not cleared between messages
int lastMode = kGpon;                // the mode taken for granted before the first event

// The descriptor stays open for the life of the process.
int ponApi_eventSocketInit() {
    UniqueFd fd(socket(AF_NETLINK, SOCK_RAW, kPonProtocol));
    if (!fd) {
        ZN_DBG_ERROR("failed to open netlink socket PF_NETLINK, SOCK_RAW proto=%d\r\n", kPonProtocol);
        return -1;
    }
    ZN_DBG_DEBUG("open netlink socket PF_NETLINK, SOCK_RAW proto=%d\r\n", kPonProtocol);
    sockaddr_nl addr{};
    addr.nl_family = AF_NETLINK;
    addr.nl_groups = kPonGroup;
    if (bind(fd.get(), reinterpret_cast<sockaddr *>(&addr), sizeof addr) != 0) {
        ZN_DBG_ERROR("failed to bind netlink socket\r\n");
        return -1;
    }
    ZN_DBG_DEBUG("bink netlink socket PF_NETLINK, SOCK_RAW proto=%d, group %d\r\n", kPonProtocol, kPonGroup);
    ponEventSocket = fd.release();
    return ponEventSocket;
}

int ponApi_eventRecv() {
    auto *buf = static_cast<uint8_t *>(calloc(1, kPonRecvRoom));
    if (!buf) {
        ZN_DBG_ERROR("Faile to alloc mem\n");
        return -1;
    }
    sockaddr_nl from{};
    iovec iov{buf, kPonRecvRoom};
    msghdr msg{};
    msg.msg_name = &from;
    msg.msg_namelen = sizeof from;
    msg.msg_iov = &iov;
    msg.msg_iovlen = 1;
    const ssize_t n = recvmsg(ponEventSocket, &msg, 0);
    if (n < 0) {
        ZN_DBG_ERROR("recevice fail\n");
        free(buf);
        return -1;
    }
    const Parse parsed = pon_parse(buf, size_t(n), ponApi_event);
    free(buf);
    if (parsed != Parse::kOk) {
        ZN_LOG(1, "pon msg of %zd bytes dropped: no whole netlink header\n", n);
        return -1;
    }
    return 0;
}

void wrapperPonModeChangeEventSend(const char *name) {
    zns_eventNotify(ZNS_EVENT_PON_MODE_CHANGE, ZNS_TYPE_STRING, name);
    agent_console("send znsTask pon mode change to %s!!\n", name);
    ZN_LOG(4, "send zns event:ZNS_EVENT_PON_MODE_CHANGE notify SUCCESS.\n");
}

void FC_ponEvent(int mode) {
    const int syspon = libzn_sys_getPonMode();
    const int lanWan = access(kEthWanMarker, F_OK) == 0 ? 1 : 0;
    agent_console("FC_ponEvent: lastMode = %d, mode = %d, syspon = %d, lanWan = %d\n", lastMode, mode, syspon, lanWan);
    char cmd[kCommandRoom];
    snprintf(cmd, sizeof cmd, "echo %s > /tmp/FC_ponlink", kModeNames[mode]);
    system(cmd);
    if (lanWan == 0 && syspon == kPonModeTested && lastMode != mode) {
        for (const UplinkValue &v : kUplinkValues) {
            snprintf(cmd, sizeof cmd, "znsUtil -s %s %s string %s", v.path, v.param, kModeNames[mode]);
            system(cmd);
        }
    }
    lastMode = mode;
}

} // namespace

Parse pon_parse(const uint8_t *buf, size_t len, uint8_t (&event)[kPonEventRoom]) {
    ByteCursor c(buf, len);
    nlmsghdr h;
    if (!c.take_into(&h))
        return Parse::kTooShort;
    if (h.nlmsg_len < sizeof h)
        return Parse::kBadLength;
    const size_t payload = std::min({size_t(h.nlmsg_len - sizeof h), c.left(), sizeof event});
    memcpy(event, c.take(payload), payload);
    return Parse::kOk;
}

PonEvent pon_read(const uint8_t (&event)[kPonEventRoom]) {
    PonEvent e{};
    ByteCursor c(event, sizeof event);
    c.skip(kTypeAt);
    c.take_into(&e.type);
    e.recovered = *c.peek();
    c.take_into(&e.wanMode);
    return e;
}

int pon_mode_index(uint32_t wanMode) {
    for (const WanMode &m : kWanModes)
        if (m.value == wanMode)
            return m.index;
    return -1;
}

void *ponEventHandler(void *) {
    if (ponApi_eventSocketInit() <= 0) {
        ZN_LOG(1, "ponApi_eventSocketInit failed\n");
        return nullptr;
    }
    for (;;) {
        fd_set readable;
        FD_ZERO(&readable);
        FD_SET(ponEventSocket, &readable);
        timeval timeout{kSelectSeconds, 0};
        const int ready = select(ponEventSocket + 1, &readable, nullptr, nullptr, &timeout);
        if (ready == 0)
            ZN_LOG(4, "select timeout, no pon msg to receive!!!\n");
        if (ready <= 0 || ponApi_eventRecv() != 0)
            continue;
        const PonEvent e = pon_read(ponApi_event);
        if (e.type == kPonEventRecovered) {
            agent_console("receive zn_recovered event with type %d \n", e.recovered);
            for (const Recovery &r : kRecoveries) {
                if (r.type != e.recovered)
                    continue;
                syslog(LOG_ERR, "%s", r.line);
                if (r.command)
                    system(r.command);
            }
        } else if (e.type == kPonEventWanChange) {
            agent_console("ponEventHandler event: wan change--%d--\n", int(e.wanMode));
            const int mode = pon_mode_index(e.wanMode);
            if (mode < 0)
                continue;
            wrapperPonModeChangeEventSend(kModeNames[mode]);
            FC_ponEvent(mode);
        }
    }
}
