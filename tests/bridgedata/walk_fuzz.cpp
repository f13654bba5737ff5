// Fuzz target: one datagram of the bridge data channel, walked and its
// reports turned into text.
#include <cstring>

#include "bridgedata.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    bridgedata_walk(data, size, [](const bridgedataReport &r) {
        if (strlen(r.InterfaceName) >= sizeof r.InterfaceName || strlen(r.smac) != 17 || strlen(r.ip) > 15)
            __builtin_trap();
    });
    return 0;
}
