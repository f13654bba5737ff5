// The kernel's link messages turned into the gateway's WAN, LAN and SSID
// link events, each with a system log line.
#pragma once

#include <cstddef>
#include <cstdint>

constexpr size_t kIfNameRoom = 16;
constexpr const char *kWanPhysicalTypeFile = "/var/wanPhysicalType";

// Thread entry; returns only when the socket can't be set up.
void *kernelEventHandler(void *arg);

// What the handling takes from one link message.
struct LinkMsg {
    uint16_t type;
    uint32_t flags; // of the interface info header; 0 when the message is too short for it
    bool hasName;
    char name[kIfNameRoom]; // the last IFLA_IFNAME
};

// Calls fn with each link message (RTM_NEWLINK, RTM_DELLINK) of a datagram,
// its own nlmsg_len bytes; address, route, error and done messages are
// skipped, others logged. A length below 16 or beyond the bytes left ends
// the walk.
using LinkMsgFn = void (*)(const uint8_t *msg, size_t len);
void link_walk(const uint8_t *buf, size_t len, LinkMsgFn fn);
// Takes what the message has: a damaged attribute ends the attributes there,
// what came before counts.
void link_parse(const uint8_t *msg, size_t len, LinkMsg *out);

// Splits a line of the WAN file at "=" as strtok does: the physical type and
// the interface name, each cut to 15 characters, the name without its line
// end. Returns how many of the two were found.
int link_wan_split(const char *line, char (&type)[kIfNameRoom], char (&ifname)[kIfNameRoom]);
// Both from the WAN file, read afresh; empty when it can't be read.
void getWanPhysicalTypeAndIfname(char (&type)[kIfNameRoom], char (&ifname)[kIfNameRoom]);
