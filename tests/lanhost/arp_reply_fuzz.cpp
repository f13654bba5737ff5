// Fuzz target: one frame of the ARP socket as the tracker reads it, with one
// host on the list so that a reply from it is followed to the end.

#include "lanhost_arp.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static lhost *host = [] {
        lhost *h = list_init_add_lhost();
        lanhost_copy_text(h->macAddr, "02:00:00:00:52:01");
        macStr_to_bytes(h->mac, h->macAddr);
        lanhost_copy_text(h->ipAddr, "192.168.1.52");
        return h;
    }();
    host->arpState = 1;
    lanhost_arp_reply_handle(data, size);
    return 0;
}
