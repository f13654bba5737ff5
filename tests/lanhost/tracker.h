// What the tracker's tests share: host records, a gateway whose store and
// event base the tracker uses as its own, and the Host objects it publishes.
#pragma once

#include <arpa/inet.h>
#include <sys/socket.h>

#include <tuple>
#include <vector>

#include "lanhost.h"
#include "lanhost_sockets.h"
#include "lanhost_store.h"
#include "lanhost_table.h"
#include "shell.h"

namespace zntest {

// A record as the bridge and an address have made it.
inline lhost *add_host(const char *mac, const char *port, const char *ip = "") {
    lhost *h = list_init_add_lhost();
    macStr_to_bytes(h->mac, mac);
    lanhost_mac_text(h->mac, true, h->macAddr);
    lanhost_copy_text(h->brPortName, port);
    lanhost_copy_text(h->ipAddr, ip);
    h->active = 1;
    return h;
}

// The IPv4 synchronisation of a record, as the event paths call it.
inline void sync4(const lhost *h) { wrapperZns_lanhost_update(h->mac, h->ipAddr, AF_INET, 0); }

// One parameter of the Host object of the record's MAC, "" without one.
inline std::string stored(const lhost *h, const char *name) {
    char mac[kMacTextSize];
    lanhost_mac_text(h->mac, false, mac);
    return host_object(mac)[name];
}

// The tests of a binary share one gateway, and the tracker's globals. Each
// test leaves both host lists and the tables under Hosts empty.
class TrackerTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        ASSERT_TRUE(run("[ -e /sys/class/net/br0 ] || vgw lan up"));
        storeHandle = zns_xmlShmInit();
        lanhostEventBase = event_base_new();
        ASSERT_TRUE(storeHandle && lanhostEventBase);
    }
    void SetUp() override { lanhost_copy_text(gatewayBaseMac, "02:00:00:00:00:01"); }
    void TearDown() override {
        while (hostListHead)
            list_del_lhost(hostListHead);
        while (dhcpRequestListHead)
            list_del_dhcpRequestEntry(dhcpRequestListHead);
        for (int i = 1; i <= kLanhostMaxNum; i++)
            for (uint32_t oid : {kOidHost, kOidOfflineHost, kOidHostCustomise, kOidTempMacTable})
                znsXml_delObjectByOIDIAIndirect(storeHandle, oid, lanhost_instance(i));
    }
};

} // namespace zntest
