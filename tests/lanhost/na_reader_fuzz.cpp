// The advertisement reader on any frame, with a host whose probe waits.
#include <sys/socket.h>

#include "lanhost.h"
#include "lanhost_icmp6.h"
#include "lanhost_table.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static int pair[2] = {-1, -1};
    static lhost *host;
    if (!host) {
        socketpair(AF_UNIX, SOCK_DGRAM, 0, pair);
        host = list_init_add_lhost();
        lanhost_copy_text(host->macAddr, "02:00:00:00:10:01");
        lanhost_copy_text(host->ipv6LocalAddr, "fe80::ff:fe00:1001");
    }
    host->icmp6State = 2;
    if (send(pair[0], data, size, 0) == ssize_t(size))
        zn_event_lanhost_ipv6MulticastSockRead_cb(pair[1], EV_READ, nullptr);
    NeighborAdvert na;
    lanhost_na_message_parse(data, size, &na);
    return 0;
}
