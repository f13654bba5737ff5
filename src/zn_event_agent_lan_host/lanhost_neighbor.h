// The neighbor socket: bridge forwarding entries, IPv4 and IPv6 neighbor
// entries and the wireless driver's departure message, turned into changes
// of the host table.
#pragma once

#include <event2/event.h>
#include <netinet/in.h>

#include <cstddef>
#include <cstdint>

#include "byte_cursor.h"
#include "lanhost_table.h"

constexpr size_t kNeighborDatagram = 2048;
constexpr uint16_t kWlanLeaveMsgType = 200;
constexpr size_t kNdaTableSize = 15; // attribute types 0..14

// One route attribute of a neighbor message: its payload, inside the message.
struct NeighborAttr {
    const uint8_t *data;
    size_t len;
};

// What a neighbor message says, its attributes by type; the later of two
// attributes of one type counts.
struct NeighborMsg {
    uint16_t type;
    uint8_t family;
    int32_t ifindex;
    uint16_t state;
    NeighborAttr attr[kNdaTableSize];
};

// Typed readers of an attribute: false, and *out untouched, when it is
// absent or shorter than its kind's length (MAC 6, IPv4 4, IPv6 16, master 4).
bool lanhost_attr_mac(const NeighborAttr &a, uint8_t (&out)[6]);
bool lanhost_attr_ipv4(const NeighborAttr &a, in_addr *out);
bool lanhost_attr_ipv6(const NeighborAttr &a, in6_addr *out);
bool lanhost_attr_master(const NeighborAttr &a, int32_t *out);

void zn_event_lanhost_neighbor_read_cb(evutil_socket_t fd, short what, void *arg);

// Calls fn for each message of type 28, 29 or 200 in a datagram, with the
// message's own nlmsg_len bytes. A length below 16 or beyond the bytes left
// ends the walk.
using NeighborMsgFn = void (*)(uint16_t type, const uint8_t *msg, size_t len);
void lanhost_neighbor_walk(const uint8_t *buf, size_t len, NeighborMsgFn fn);
// What the tracker does with one message of the walk.
void lanhost_neighbor_dispatch(uint16_t type, const uint8_t *msg, size_t len);

// kOk, or kTooShort when the message is too short for its ndmsg. A damaged
// attribute list ends the attributes there; what came before counts.
Parse lanhost_neighbor_parse(const uint8_t *msg, size_t len, NeighborMsg *out);
// The station's MAC text of a departure message: kOk (empty when the message
// holds no text), kTooShort without a whole header, kTooLong when the text is
// longer than a MAC text (it is cut to one).
Parse lanhost_wlan_leave_text(const uint8_t *msg, size_t len, char (&text)[kMacTextSize]);

int netlink_neighborMsg_handle(const uint8_t *msg, size_t len);
int netlink_layer2_neighborMsg_parse(const NeighborAttr *attrs, int32_t ifindex, uint16_t nlmsgType);
int netlink_layer3_neighborMsg_parse(const NeighborAttr *attrs, uint16_t nlmsgType);
int netlink_layer3_ipv6NeighborMsg_parse(const NeighborAttr *attrs, uint16_t nlmsgType);
int netlink_wlan_neighborMsg_handle(const uint8_t *msg, size_t len);
int wrapperZns_lanhost_update_Layer2Interface(lhost *host);
const char *netlink_nlmsgType_name(uint16_t type);
const char *netlink_ndmState_name(uint16_t state);

// Classes of lanhost_macfilter_notify.
enum MacfilterClass { kMacfilterNewWired = 0, kMacfilterWiredDeleted = 1, kMacfilterFiltered = 2 };
// Whether a line of the wired filter table, "MAC - PORT", is the one of mac
// on port (both regardless of case).
bool lanhost_macfilter_line_names(const char *line, const char *mac, const char *port);
// A hook for the MAC filter; it does nothing and returns 0.
int lanhost_macfilter_notify(lhost *host, int macfilterClass);
