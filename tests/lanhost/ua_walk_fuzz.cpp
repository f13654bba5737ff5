// Fuzz target: one datagram of the user-agent channel as the tracker walks it.
#include <cstdint>

#include "lanhost_useragent.h"

// The target runs outside any gateway: its events stay in the process.
extern "C" int zns_eventNotify(uint32_t, uint32_t, const char *) { return 0; }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    lanhost_ua_walk(data, size);
    lanhost_ua_thread_walk(data, size);
    while (dhcpRequestListHead)
        list_del_dhcpRequestEntry(dhcpRequestListHead);
    return 0;
}
