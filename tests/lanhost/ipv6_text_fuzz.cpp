// The dhcp6s and radvd report parsers on any text.
#include <cstdint>

#include "lanhost_prefix.h"
#include "lanhost_table.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const auto *text = reinterpret_cast<const char *>(data);
    Dhcp6sLease lease;
    lanhost_dhcp6s_lease_parse(text, size, &lease);
    char address[44];
    lanhost_radvd_address(text, size, address);
    return 0;
}
