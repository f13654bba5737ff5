// The neighbour socket: bridge forwarding entries, IPv4 and IPv6 neighbour
// entries and the wireless driver's departure message, turned into changes
// of the host table.
#pragma once

#include <cstddef>
#include <cstdint>

#include "lanhost.h"
#include "lanhost_table.h"

constexpr size_t kNeighborDatagram = 2048;
constexpr uint16_t kWlanLeaveMsgType = 200;
constexpr size_t kNdaTableSize = 15; // attribute types 0..14

// One route attribute of a neighbour message: its payload, inside the message.
struct NeighAttr {
    const uint8_t *data;
    size_t len;
};

// What a neighbour message says, its attributes by type; the later of two
// attributes of one type counts.
struct NeighMsg {
    uint16_t type;
    uint8_t family;
    int32_t ifindex;
    uint16_t state;
    NeighAttr attr[kNdaTableSize];
};

// Calls fn for each message of type 28, 29 or 200 in a datagram, with the
// message's own nlmsg_len bytes. A length below 16 or beyond the bytes left
// ends the walk.
using NeighborMsgFn = void (*)(uint16_t type, const uint8_t *msg, size_t len);
void netlink_neighborMsgs_walk(const uint8_t *buf, size_t len, NeighborMsgFn fn);
// What the tracker does with one message of the walk.
void netlink_neighborMsg_dispatch(uint16_t type, const uint8_t *msg, size_t len);

// false when the message is too short for its ndmsg. A damaged attribute
// list ends the attributes there; what came before counts.
bool netlink_neighborMsg_parse(const uint8_t *msg, size_t len, NeighMsg *out);
// The station's MAC text of a departure message; empty when the message has
// none, false when the text is longer than a MAC text.
bool netlink_wlan_neighborMsg_text(const uint8_t *msg, size_t len, char (&text)[kMacTextSize]);

// Text forms of the attributes; empty when the attribute is absent or short.
void neigh_mac_text(const NeighAttr &a, char (&text)[kMacTextSize]);
void neigh_ipv4_text(const NeighAttr &a, char (&text)[16]);
void neigh_ipv6_text(const NeighAttr &a, char (&text)[46]);

int netlink_neighborMsg_handle(const uint8_t *msg, size_t len);
int netlink_layer2_neighborMsg_parse(const NeighAttr *attrs, int32_t ifindex, uint16_t nlmsgType);
int netlink_layer3_neighborMsg_parse(const NeighAttr *attrs, uint16_t nlmsgType);
int netlink_layer3_ipv6NeighborMsg_parse(const NeighAttr *attrs, uint16_t nlmsgType);
int netlink_wlan_neighborMsg_handle(const uint8_t *msg, size_t len);
int wrapperZns_lanhost_update_Layer2Interface(lhost *host);
const char *netlink_nlmsgType_name(uint16_t type);
const char *netlink_ndmState_name(uint16_t state);

// Classes of lanhost_macfilter_notify.
enum MacfilterClass { kMacfilterNewWired = 0, kMacfilterWiredDeleted = 1, kMacfilterFiltered = 2 };
// A hook for the MAC filter; it does nothing and returns 0.
int lanhost_macfilter_notify(lhost *host, int macfilterClass);
