// The ageing sweep over forwarding records, and the MAC filter poll against
// the kernel component's stand-in.
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "lanhost.h"
#include "lanhost_ageing.h"
#include "lanhost_neighbor.h"
#include "shell.h"

using zntest::sh;

namespace {

brctl_fdb_entry_t record(const char *mac, uint32_t ageing) {
    brctl_fdb_entry_t r{};
    macStr_to_bytes(r.mac_addr, mac);
    r.ageing_timer_value = ageing;
    return r;
}

lhost *add_host(const char *mac, const char *ip) {
    lhost *h = list_init_add_lhost();
    macStr_to_bytes(h->mac, mac);
    lanhost_copy_text(h->macAddr, mac);
    lanhost_copy_text(h->brPortName, "eth1");
    lanhost_copy_text(h->ipAddr, ip);
    h->active = 1;
    return h;
}

} // namespace

class Ageing : public testing::Test {
protected:
    static void SetUpTestSuite() {
        ASSERT_EQ(sh("[ -e /sys/class/net/br0 ] || vgw lan up").status, 0);
        lanhostEventBase = event_base_new();
        ASSERT_NE(lanhostEventBase, nullptr);
    }
    void TearDown() override {
        while (hostListHead)
            list_del_lhost(hostListHead);
    }
};

TEST_F(Ageing, HostsSilentForSixSecondsGetOneProbe) {
    struct Case {
        const char *what;
        uint32_t ageing;
        int active;
        int arpState;
        bool probed;
    } cases[] = {
        {"silent", 600, 1, 0, true},          {"599", 599, 1, 0, false},
        {"offline", 900, 0, 0, false},        {"probe outstanding", 900, 1, 1, false},
    };
    for (const Case &c : cases) {
        lhost *h = add_host("02:00:00:00:53:01", "192.168.1.53");
        h->active = c.active;
        h->arpState = c.arpState;
        const brctl_fdb_entry_t records[] = {record("02:00:00:00:53:09", 900), record("02:00:00:00:53:01", c.ageing)};
        lanhost_mac_ageing_sweep(records, 2);
        EXPECT_EQ(h->arpTimer != nullptr, c.probed) << c.what;
        EXPECT_EQ(h->arpState, c.probed ? 1 : c.arpState) << c.what;
        TearDown();
    }
    EXPECT_EQ(zn_event_lanhost_handle_macAging(), 0) << "a live bridge with no host in the list";
}

TEST(MacText, OnlyHexPairsJoinedByColons) {
    for (const char *good : {"02:00:00:00:53:01", "AA:bb:Cc:dD:ee:FF"})
        EXPECT_TRUE(lanhost_mac_str_is_valid(good)) << good;
    for (const char *bad : {"", "02:00:00:00:53:0", "02:00:00:00:53:011", "02-00-00-00-53-01", "02:00:00:00:53:0g",
                            "02:00:00:00:53;01", "$(reboot):00:00:01", "0x:00:00:00:53:01"})
        EXPECT_FALSE(lanhost_mac_str_is_valid(bad)) << bad;
    EXPECT_FALSE(lanhost_mac_str_is_valid(nullptr));
}

TEST(Macfilter, FlaggedMacsAreReportedInUpperCaseAndNothingElseRuns) {
    ASSERT_EQ(sh("znkernel macfilter off").status, 0);
    zn_event_lanhost_handle_macfilter(); // no filter on this gateway

    ASSERT_EQ(sh("znkernel macfilter stat").status, 0);
    zn_event_lanhost_handle_macfilter();
    EXPECT_EQ(sh("znkernel macfilter table-show").out, "") << "only the heading line";

    // The stand-in refuses to write what isn't a MAC text; the kernel's file is taken as it comes.
    ASSERT_EQ(sh("znkernel macfilter stat 02:00:00:00:5a:01 3 02:00:00:00:5A:02 0 02:00:00:00:5A:03 1 && "
                 "printf '%s 2\\n' '$(touch${IFS}/tmp/pwned)' '02:00:00:00:5A:04;reboot' `printf 'a%.0s' $(seq 120)` "
                 ">> /run/znkemu/macfilter/stat")
                  .status,
              0);
    zn_event_lanhost_handle_macfilter();
    EXPECT_EQ(sh("znkernel macfilter table-show").out,
              "FLG mac:02:00:00:00:5A:01\nFLG mac:02:00:00:00:5A:03\n");
    EXPECT_NE(access("/tmp/pwned", F_OK), 0);
    EXPECT_EQ(sh("vgw stubs").out, "");

    FILE *f = lanhost_macfilter_stat_open();
    ASSERT_NE(f, nullptr);
    char mac[kMacfilterLine];
    int count = -1;
    ASSERT_TRUE(lanhost_macfilter_stat_next(f, mac, &count));
    EXPECT_STREQ(mac, "02:00:00:00:5a:01");
    EXPECT_EQ(count, 3);
    fclose(f);
    ASSERT_EQ(sh("znkernel macfilter off").status, 0);
}
