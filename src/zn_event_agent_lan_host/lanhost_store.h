// Publication of host records in the store: the Host objects, the table of
// offline hosts, the count of active hosts, and what the lease files of the
// DHCP servers tell. Tracker thread only.
#pragma once

#include <cstddef>
#include <cstdint>

#include "lanhost_records.h"
#include "lanhost_table.h"

// scope: 0 for the IPv4 form (family AF_INET), kIpv6ScopeGlobal or
// kIpv6ScopeLink for the IPv6 forms (AF_INET6). Returns 0.
int wrapperZns_lanhost_update(const uint8_t *mac, const char *addr, int family, int scope);
void wrapperZns_lanhost_update_hostNum();
int wrapperZns_lanhost_set_offline(lhost *host);
int wrapperZns_lanhostIPv6_set_offline(lhost *host);
int wrapperZns_lanhostIPv6_delete(const uint8_t *mac);
void wrapperOfflineLanHost_add(zns_xml_handle_t *handle, const uint8_t *mac, const void *hostObject);
// Deletes the first OfflineHost object with this MAC.
void wrapperZns_offlineLanHost_delete(const uint8_t *mac);
// *devtype stays as it was when the temporary MAC table has no entry.
void wrapperZns_get_devtype_by_tempMactable(const char *macText, int32_t *devtype);

// Required by the design, not called yet.
int32_t getMacTableDeviceType(const uint8_t *mac);
// Required by the design, not called yet.
int wrapperZns_lanhost_get_longestOffline();
// Required by the design, not called yet.
int wrapperZns_unusedLanhost_delete(const uint8_t *mac);

// System uptime in seconds, truncated to 32 bits.
uint32_t lanhost_uptime();

// What one line of "/etc/dnsmasq.leases" tells of a host: fields 4 (the name,
// "unknown" when empty or "*", 0x1F bytes shown as blanks) and 6 (the lease
// time, 0 when missing) of the blank-separated line.
struct DnsmasqLease {
    char hostName[sizeof(lhost::HostName)];
    char source[sizeof(lhost::ipAddrSource)]; // "DHCP": the line exists
    int64_t leaseTime;
};

// Scans len bytes of line (a NUL ends it early).
void lanhost_dnsmasq_lease_scan(const char *line, size_t len, DnsmasqLease *lease);
