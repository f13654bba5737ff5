// Fuzz target: the first line of the WAN file, as fgets leaves it, split
// into physical type and interface name.
#include <cstdlib>
#include <cstring>

#include "link_events.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    char line[kIfNameRoom * 8] = {};
    memcpy(line, data, size < sizeof line - 1 ? size : sizeof line - 1);
    char type[kIfNameRoom], ifname[kIfNameRoom];
    const int found = link_wan_split(line, type, ifname);
    if (found < 0 || found > 2 || strchr(type, '=') || strchr(ifname, '=') || (found < 2 && ifname[0]))
        abort();
    return 0;
}
