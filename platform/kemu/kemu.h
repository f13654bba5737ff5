// The gateway's kernel components that speak private netlink protocols,
// played in user space. The preload library (preload.cpp) gives every
// process sockets of those protocols; znkernel is the components' side.
// Both meet in the files below /run/znkemu.
#pragma once

#include <linux/input.h>
#include <linux/netlink.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kemu {

// ---- the protocols ---------------------------------------------------------

constexpr int kProtoPon = 25;        // PON driver
constexpr int kProtoBridgeData = 29; // bridge data component
constexpr int kProtoUserAgent = 31;  // HTTP user-agent module
constexpr bool emulated(int protocol) {
    return protocol == kProtoPon || protocol == kProtoBridgeData || protocol == kProtoUserAgent;
}

// ---- message layouts, integers in host order unless told -----------------

// PON driver to its listeners, multicast to group 1. The mode of a WAN
// change is a 32-bit value at an odd offset, hence the byte array.
struct __attribute__((packed)) PonEvent {
    nlmsghdr hdr;
    uint8_t head[2];
    uint8_t type;
    uint8_t value[4]; // WAN change: the mode; recovered: value[0] is the type
};
static_assert(offsetof(PonEvent, type) == 18 && offsetof(PonEvent, value) == 19 && sizeof(PonEvent) == 23);
constexpr uint8_t kPonWanChange = 9;
constexpr uint8_t kPonRecovered = 14;
constexpr uint32_t kPonGroups = 1;

// What a process sends the user-agent module: a greeting that makes the
// module report to the port id in the header.
struct UaGreeting {
    nlmsghdr hdr;
    char text[1024];
};
static_assert(offsetof(UaGreeting, text) == 16 && sizeof(UaGreeting) == 1040);

// The module's report: a MAC, then text with its zero up to nlmsg_len.
struct __attribute__((packed)) UaReportHead {
    nlmsghdr hdr;
    uint8_t mac[6];
};
static_assert(offsetof(UaReportHead, mac) == 16 && sizeof(UaReportHead) == 22);

// Listener to bridge data component: type 1 connects, 2 disconnects the
// process named in pid.
struct BridgeDataCommand {
    nlmsghdr hdr;
    uint32_t pid;
};
static_assert(offsetof(BridgeDataCommand, pid) == 16 && sizeof(BridgeDataCommand) == 20);
constexpr uint16_t kBridgeDataConnect = 1;
constexpr uint16_t kBridgeDataDisconnect = 2;

struct BridgeDataReport {
    nlmsghdr hdr;
    char ifname[16];
    uint8_t dmac[6];
    uint8_t smac[6];
    uint16_t session_id; // network byte order
    uint8_t pad[2];
    uint8_t ip[4];
    uint8_t dns[4];
};
static_assert(offsetof(BridgeDataReport, ifname) == 16 && offsetof(BridgeDataReport, dmac) == 32 &&
              offsetof(BridgeDataReport, smac) == 38 && offsetof(BridgeDataReport, session_id) == 44 &&
              offsetof(BridgeDataReport, ip) == 48 && offsetof(BridgeDataReport, dns) == 52 &&
              sizeof(BridgeDataReport) == 56);

// Wireless driver: a station left. A real routing netlink message, unicast
// to the agent's neighbour socket, whose port id is its pid with these bits.
struct __attribute__((packed)) WlanLeave {
    nlmsghdr hdr;
    char mac[18]; // "xx:xx:xx:xx:xx:xx" and its zero
};
static_assert(offsetof(WlanLeave, mac) == 16 && sizeof(WlanLeave) == 34);
constexpr uint16_t kWlanLeaveType = 200;
constexpr uint32_t kAgentRoutePortBits = 0x640000;
constexpr uint32_t kNeighGroups = 4; // RTMGRP_NEIGH

// ---- the buttons' input device --------------------------------------------

// A FIFO in the gateway's own /dev stands in for the device: a read of one
// record behaves as on the kernel's device, as long as a writer holds the
// FIFO open (the sandbox keeps one).
constexpr const char *kInputDevice = "/dev/input/event0";

// The kernel's input event for a process of this build's word size: 24
// bytes on a 64-bit system, 16 on a 32-bit one.
using InputRecord = input_event;

// ---- where sockets live ----------------------------------------------------

constexpr const char *kRoot = "/run/znkemu";
constexpr const char *kLogPath = "/run/znkemu/log";
constexpr size_t kMaxDatagram = 16384;

// The MAC filter's files, and the directory that stands in for them.
constexpr char kMacfilterProc[] = "/proc/macfilter";
constexpr char kMacfilterDir[] = "/run/znkemu/macfilter";
constexpr char kMacfilterStat[] = "/run/znkemu/macfilter/stat";
constexpr char kMacfilterTable[] = "/run/znkemu/macfilter/table";

// A bound socket of an emulated protocol is a unix datagram socket at
// /run/znkemu/PROTO/PORTID.GROUPS-HEX.
struct Port {
    uint32_t id;
    uint32_t groups;
    std::string path;
};
std::string port_dir(int protocol);
std::string port_path(int protocol, uint32_t id, uint32_t groups);
// The live ports of a protocol; files of sockets that are gone are removed.
std::vector<Port> ports(int protocol);
// Holds the protocol's bind lock for its life.
class BindLock {
public:
    explicit BindLock(int protocol);
    ~BindLock();
    BindLock(const BindLock &) = delete;
    BindLock &operator=(const BindLock &) = delete;

private:
    int fd_ = -1;
};
int mkdirs(const std::string &dir);
// While the file /run/znkemu/PROTO.off exists, sockets of the protocol are
// refused as on a kernel without the component.
std::string refusal_path(int protocol);
bool refused(int protocol);
sockaddr_un unix_address(const std::string &path, socklen_t *len);

// The components send from the abstract unix name "znkemu-kernel.GROUPS.PID";
// a receiver sees that as the kernel (port id 0) with those groups, and a
// socket of the port directory as that port id.
int kernel_socket(uint32_t groups);
sockaddr_nl source_address(const sockaddr_un &from, socklen_t len);

// ---- the components' log: what processes sent them -----------------------

// One line per netlink message:
//   SECONDS.MILLIS proto=P port=SENDER len=N SUMMARY hex=BYTES
// SUMMARY is "greeting pid=N text=\"...\"" (protocol 31), "connect pid=N"
// or "disconnect pid=N" (protocol 29), else "type=T pid=N"; "malformed" for
// bytes that aren't a netlink message.
void log_datagram(int protocol, uint32_t sender, const uint8_t *data, size_t len);
struct LogEntry {
    int protocol;
    std::string kind; // greeting, connect, disconnect, type=T, malformed
    uint32_t pid;
};
std::vector<LogEntry> read_log();

} // namespace kemu
