// The DHCP option scan on any option list: a request's facts stay within
// their fields, a host name within the record's.
#include <cstring>

#include "lanhost_dhcp.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    DhcpRequestSnoop req;
    if (zn_event_lanhost_dhcpRequest_parse(data, size, &req) == 0 &&
        (strlen(req.macAddr) != kMacTextSize - 1 || strlen(req.hostName) >= sizeof req.hostName))
        __builtin_trap();
    return 0;
}
