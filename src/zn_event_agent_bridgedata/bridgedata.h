// The bridge data channel: a kernel component on netlink protocol 29
// reports sessions of bridged interfaces, and each report is copied into
// the bridge data node of the store (OID 272). The worker is built whole
// but thread_init doesn't start it.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

constexpr int kBridgeDataProtocol = 29;
constexpr size_t kBridgeDataReadSize = 512; // one read of the worker
constexpr size_t kBridgeDataTextSize = 64;

// One report as it goes to the store: the interface name, the session id in
// host order, MACs as lower-case pairs joined by ':' and IPv4 addresses as
// dotted decimals, first byte first.
struct bridgedataReport {
    char InterfaceName[17]; // the 16 bytes of the report, always terminated
    uint32_t sessionID;
    char smac[kBridgeDataTextSize];
    char dmac[kBridgeDataTextSize];
    char ip[kBridgeDataTextSize];
    char dns[kBridgeDataTextSize];
};

// Thread entry, no argument: socket, bind and connect, then reads until the
// process ends. A failed set-up ends the thread, detached.
void *bridgedataThread(void *arg);

// Tell the kernel to report to this process (type 1), or to stop (type 2).
// The result of the send.
int bridgedataConnect(int fd);
int bridgedataDisconnect(int fd);
// One 20-byte command of the type for the listener pid, to the kernel. The
// result of the send, or -1 when the message can't be allocated.
int bridgedataMsgSend(int fd, uint16_t type, const pid_t *pid);

// One blocking read and every report in it, each written to the store.
void brigedata_update_znsnode(int fd);

// The walk of one datagram: each report (NLMSG_DONE) goes to on_report in
// order, other types are skipped. NLMSG_ERROR, or a length below 16 or
// beyond the bytes left, ends the datagram.
void bridgedata_walk(const uint8_t *bytes, size_t len, void (*on_report)(const bridgedataReport &report));
