// DHCP facts of the tracker: lease messages from the gateway's DHCP side on
// the lease-time socket, and client requests snooped on UDP port 67.
#pragma once

#include <event2/event.h>

#include <cstddef>
#include <cstdint>

#include "byte_cursor.h"
#include "lanhost_table.h"

constexpr size_t kLeaseMessageMax = 255; // characters of one lease datagram
constexpr size_t kLeaseFields = 4;       // MAC or DUID, lease, IP, host name
constexpr size_t kDuidMinLength = 20;    // a first field this long is a DUID
// RFC 2131, section 2: 236 bytes of fixed header, then the 4-byte magic
// cookie, then the options of RFC 2132.
constexpr size_t kDhcpOptionsAt = 240;

// A lease message as received, and cut at its commas: a run of commas counts
// as one, so an empty field moves the following ones up. Fields beyond the
// fourth are dropped.
struct LeaseMessage {
    char text[kLeaseMessageMax + 1];
    size_t count;
    char field[kLeaseFields][kLeaseMessageMax + 1];
};

// The text ends at the length given, at a NUL or after kLeaseMessageMax bytes.
void lanhost_lease_message_parse(const char *buf, size_t len, LeaseMessage *msg);

void zn_event_lanhost_dhcpSockRead_cb(evutil_socket_t fd, short what, void *arg);
// Handles the IPv4 form "MAC,lease,IP[,name]"; returns 0.
int zn_event_lanhost_update_dhcp_LeaseTime(const LeaseMessage &msg);
// Sets the IPv6 lease of the online Host object with this DUID; returns 0.
int updateIpv6LeaseTime(const char *duid, long leaseTime);

// An option as the snooper wants it: a value of minLen to maxLen bytes.
struct DhcpOptionRule {
    uint8_t code;
    uint8_t minLen;
    uint8_t maxLen;
};

// The first option `rule.code` of an option list (the bytes behind the magic
// cookie): pads are skipped, the end option or the end of the bytes ends the
// list, and an option that runs past the end is not there. kOk with its value
// in *value, kMissing, or kBadLength when its length breaks the rule.
Parse lanhost_dhcp_option_lookup(const uint8_t *opts, size_t len, const DhcpOptionRule &rule, ByteCursor *value);

// What a client's DHCP request tells of it.
struct DhcpRequestSnoop {
    char macAddr[kMacTextSize];      // client identifier, lower-case text
    char requestedIp[kIpv4TextSize]; // dotted text, empty without option 50
    bool hasHostName;                // option 12 is there; its value may be empty
    char hostName[sizeof(lhost::HostName)];
};

// The options of a client's message: kOk and the facts in *out for a request
// (or a message without a type) with a whole client identifier and
// well-formed optional fields; kWrongType for another message type, kMissing
// without a client identifier, kBadLength for an option of a wrong length.
Parse lanhost_dhcp_request_parse(const uint8_t *opts, size_t len, DhcpRequestSnoop *out);

void zn_event_lanhost_bridge_dhcpSockRead_cb(evutil_socket_t fd, short what, void *arg);
