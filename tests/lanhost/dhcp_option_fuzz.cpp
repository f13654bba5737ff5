// Fuzz target: the text of a DHCP option report split into its entry.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "lanhost_useragent.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    dhcpRequestEntry e{};
    lanhost_dhcp_option_update(&e, reinterpret_cast<const char *>(data), size);
    if (!memchr(e.requestedIp, 0, sizeof e.requestedIp) || !memchr(e.hostName, 0, sizeof e.hostName) ||
        !memchr(e.hostNameAlt, 0, sizeof e.hostNameAlt))
        abort();
    return 0;
}
