// Fuzz target: one datagram of the link socket, walked and each link message parsed.
#include "link_events.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    link_walk(data, size, [](const uint8_t *msg, size_t len) { LinkMsg m; link_parse(msg, len, &m); });
    return 0;
}
