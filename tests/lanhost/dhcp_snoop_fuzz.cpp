// The DHCP option scan on any option list: a request's facts stay within
// their fields, a host name within the record's.
#include <cstring>

#include "lanhost_dhcp.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    DhcpRequestSnoop req;
    if (lanhost_dhcp_request_parse(data, size, &req) == Parse::kOk &&
        (strlen(req.macAddr) != kMacTextSize - 1 || strlen(req.hostName) >= sizeof req.hostName))
        __builtin_trap();
    return 0;
}
