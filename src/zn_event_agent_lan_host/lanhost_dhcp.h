// DHCP facts of the tracker: lease messages from the gateway's DHCP side on
// the lease-time socket, and client requests snooped on UDP port 67.
#pragma once

#include <cstddef>
#include <cstdint>

#include "byte_cursor.h"
#include "lanhost.h"
#include "lanhost_table.h"

constexpr size_t kLeaseMessageMax = 255;   // characters of one lease datagram
constexpr size_t kLeaseFields = 4;         // MAC or DUID, lease, IP, host name
constexpr size_t kDuidMinLength = 20;      // a first field this long is a DUID
constexpr size_t kDhcpOptionsAt = 240;     // fixed header and magic cookie
constexpr size_t kDhcpReadSize = 2048;

// A lease message cut at its commas: a run of commas counts as one, so an
// empty field moves the following ones up. Fields beyond the fourth are
// dropped; the text ends at the length given or at a NUL.
struct LeaseMessage {
    size_t count;
    char field[kLeaseFields][kLeaseMessageMax + 1];
};

void zn_event_lanhost_leaseMsg_parse(const char *buf, size_t len, LeaseMessage *msg);

// Handles the IPv4 form "MAC,lease,IP[,name]"; returns 0.
int zn_event_lanhost_update_dhcp_LeaseTime(const char *text);
// Sets the IPv6 lease of the online Host object with this DUID; returns 0.
int updateIpv6LeaseTime(const char *duid, long leaseTime);

// An option as the snooper wants it: a value of minLen to maxLen bytes.
struct DhcpOptionRule {
    uint8_t code;
    uint8_t minLen;
    uint8_t maxLen;
};

enum class DhcpOption { kAbsent, kFound, kBadLength };

// The first option `rule.code` of an option list (the bytes behind the magic
// cookie): pads are skipped, 255 or the end of the bytes ends the list, and an
// option that runs past the end is not there. kFound puts its value in *value.
DhcpOption dhcp_option_lookup(const uint8_t *opts, size_t len, const DhcpOptionRule &rule, ByteCursor *value);

// What a client's DHCP request tells of it.
struct DhcpRequestSnoop {
    char macAddr[kMacTextSize];  // client identifier, lower-case text
    char requestedIp[16];        // dotted text, empty without option 50
    bool hasHostName;
    char hostName[sizeof(lhost::HostName)];
};

// The options of a client's message: 0 and the facts in *out for a request
// (or a message without a type) with a whole client identifier and well-formed
// optional fields, -1 for anything else.
int zn_event_lanhost_dhcpRequest_parse(const uint8_t *opts, size_t len, DhcpRequestSnoop *out);
