// Publication of hosts in the store: the record positions read straight from
// the Hosts subtree, the scans over its tables, and the dnsmasq lease line.
// Tracker thread only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "lanhost.h"
#include "lanhost_table.h"

// Host object (OID 156).
constexpr size_t kHostUtcDowntimeAt = 0, kHostDeviceTypeAt = 4, kHostMacAt = 16, kHostIpAddressAt = 28,
                 kHostAddressSourceAt = 45, kHostLayer2InterfaceAt = 53, kHostInterfaceTypeAt = 310,
                 kHostIpv6AddressAt = 320, kHostIpv6LocalAddressAt = 365, kHostGuaAddressAt = 410,
                 kHostCustomiseNameAt = 584, kHostLeaseTimeAt = 736, kHostActiveAt = 760, kHostIpv6ActiveAt = 761,
                 kHostHostNameAt = 764, kHostVendorAt = 894, kHostIpv6LocalAddressSize = 45;
// OfflineHost object (OID 159), Hosts object (OID 155), temporary MAC table entry (OID 161).
constexpr size_t kOfflineUtcDowntimeAt = 0, kOfflineMacAt = 8, kHostsNumberAt = 4, kTempDeviceTypeAt = 0,
                 kTempMacAt = 4;
constexpr int kTempMacTableLast = 254;

// Instance "1,index" at depth 2: entry index of a table under LANDevice 1.
zns_ia_t lanhost_instance(int index);

// Visits the objects of oid at indexes 1 to last, absent ones as null, until
// visit returns true; that index, or 0 when it never did.
template <typename Visit> int lanhost_store_scan(zns_xml_handle_t *handle, uint32_t oid, int last, Visit &&visit) {
    for (int i = 1; i <= last; i++)
        if (visit(i, static_cast<const uint8_t *>(znsXml_GetObjectByOID(handle, oid, lanhost_instance(i), 1))))
            return i;
    return 0;
}

// A fixed-width value of a record in shared memory, which need not be aligned.
template <typename T> T lanhost_field(const uint8_t *object, size_t at) {
    T value;
    memcpy(&value, object + at, sizeof value);
    return value;
}

// Writes one parameter of the object at address object.
void lanhost_store_set_one(zns_xml_handle_t *handle, const void *object, const char *name, uint32_t type,
                           const void *value);

// System uptime in seconds, truncated to 32 bits.
uint32_t lanhost_uptime();

void lanhost_mac_text(const uint8_t *mac, bool upper, char (&out)[kMacTextSize]);

// Deletes the first OfflineHost object with this MAC.
void wrapperZns_offlineLanHost_delete(const uint8_t *mac);

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
