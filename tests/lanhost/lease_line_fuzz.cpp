// Fuzz target: one line of the dnsmasq lease file as the store synchronisation scans it.
#include <cstdint>
#include <cstring>

#include "lanhost_store.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    DnsmasqLease lease;
    lanhost_dnsmasq_lease_scan(reinterpret_cast<const char *>(data), size, &lease);
    if (strnlen(lease.hostName, sizeof lease.hostName) == sizeof lease.hostName || lease.hostName[0] == '\0')
        __builtin_trap();
    return 0;
}
