// Global IPv6 addresses that dhcp6s leases and radvd announces: a neighbor
// solicitation to each makes the kernel resolve it, and the neighbor reader
// then files the address under its host.
#pragma once

#include <event2/event.h>

#include <cstddef>
#include <cstdint>

#include "byte_cursor.h"
#include "lanhost_addr.h"

constexpr size_t kDaemonDatagram = 256; // dhcp6s and radvd reports

// A dhcp6s report, "DUID ADDRESS LEASETIME" blank-separated, as a line of
// its lease file reads.
struct Dhcp6sLease {
    char duid[64];
    char address[kIpv6TextRoom];
    int64_t leaseTime;
};
// kOk, missing fields staying empty, 0; kTooLong, and all empty, when a field
// is longer than its room.
Parse lanhost_dhcp6s_lease_parse(const char *text, size_t len, Dhcp6sLease *lease);

// The address that a radvd report "PREFIX LINKLOCAL" names: the prefix's text
// up to the first colon of its "::" joined with what follows "fe80::" in the
// link-local text. kOk; kMissing when there is no link-local text with
// "fe80::" or too little to join; kTooLong when a field or the joined address
// is longer than 43 characters. out is empty unless the result is kOk.
Parse lanhost_radvd_address(const char *text, size_t len, char (&out)[kIpv6TextRoom]);

// Returns 0, or -1 for an empty text.
int prefixEventDispatch(const char *text);
// Returns 0.
int sendNS(const char *address);

void zn_event_lanhost_dhcp6sAddrSockRead_cb(evutil_socket_t fd, short what, void *arg);
void zn_event_lanhost_radvdSockRead_cb(evutil_socket_t fd, short what, void *arg);
