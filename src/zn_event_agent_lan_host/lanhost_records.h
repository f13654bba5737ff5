// The store objects that the tracker reads in place: their object ids, the
// byte positions of the fields it reads there (the store fixes these; every
// other parameter goes by name), and the scans over a table's instances.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "znsutils.h"

constexpr uint32_t kOidHosts = 155, kOidHost = 156, kOidOfflineHost = 159, kOidTempMacTable = 161,
                   kOidHostCustomise = 167;

// Hosts: the count of active hosts, and the store's own change counter that
// the flash-save timer watches.
constexpr size_t kHostsNumberAt = 4, kHostsSaveCounterAt = 8;
// Host.
constexpr size_t kHostUtcDowntimeAt = 0, kHostDeviceTypeAt = 4, kHostMacAt = 16, kHostIpAddressAt = 28,
                 kHostAddressSourceAt = 45, kHostLayer2InterfaceAt = 53, kHostInterfaceTypeAt = 310,
                 kHostIpv6AddressAt = 320, kHostIpv6LocalAddressAt = 365, kHostGuaAddressAt = 410, kHostDuidAt = 455,
                 kHostCustomiseNameAt = 584, kHostLeaseTimeAt = 736, kHostActiveAt = 760, kHostIpv6ActiveAt = 761,
                 kHostHostNameAt = 764, kHostVendorAt = 894;
constexpr size_t kHostIpv6LocalAddressSize = 45;
// OfflineHost.
constexpr size_t kOfflineUtcDowntimeAt = 0, kOfflineMacAt = 8;
// Temporary MAC table entry; its scans end at index 254.
constexpr size_t kTempDeviceTypeAt = 0, kTempMacAt = 4;
constexpr int kTempMacTableLast = 254;
// WANIPConnection and WANPPPConnection: the connection type and the LAN binding.
constexpr size_t kWanIpTypeAt = 86, kWanIpBindingAt = 1739, kWanPppTypeAt = 83, kWanPppBindingAt = 2047;

// The last index of the Host and OfflineHost tables, where their scans end.
int wrapperZns_lanhost_get_maxNum();

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

// Whether an object (which may be null) holds mac at byte at.
inline bool lanhost_has_mac(const uint8_t *object, size_t at, const uint8_t *mac) {
    return object && memcmp(object + at, mac, 6) == 0;
}

// The first Host object of mac, and its index in *index when asked; null
// and 0 when there is none.
const uint8_t *lanhost_host_find(const uint8_t *mac, int *index = nullptr);
void *wrapperZns_get_lanhost_byMac(const uint8_t *mac);

// Writes one parameter of the object at address object.
void lanhost_store_set_one(zns_xml_handle_t *handle, const void *object, const char *name, uint32_t type,
                           const void *value);
