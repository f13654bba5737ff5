// The lease message parser on any bytes: at most four fields, none with a
// comma, none longer than a message.
#include <cstring>

#include "lanhost_dhcp.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    LeaseMessage msg;
    lanhost_lease_message_parse(reinterpret_cast<const char *>(data), size, &msg);
    if (msg.count > kLeaseFields)
        __builtin_trap();
    for (size_t i = 0; i < msg.count; i++)
        if (msg.field[i][0] == '\0' || strchr(msg.field[i], ',') || strlen(msg.field[i]) > kLeaseMessageMax)
            __builtin_trap();
    return 0;
}
