// Who gets an ARP probe, the reply reader on frames changed one field at a
// time, and the MAC filter poll against the kernel component's stand-in. A
// probe's time-out and a reply on a bridged port are proven with the agent
// and real hosts (liveness_system_test).

#include "lanhost_ageing.h"
#include "lanhost_arp.h"
#include "tracker.h"

using namespace zntest;

namespace {

// A reply of host 02:00:00:00:52:01 to the gateway: sender 192.168.1.77, target 192.168.1.1.
const std::vector<uint8_t> kReply = {2, 0, 0, 0, 0, 1,    2, 0,   0,   0, 0x52, 1, 8, 6, 0, 1, 8, 0,   6,   4, 0,
                                     2, 2, 0, 0, 0, 0x52, 1, 192, 168, 1, 77,   2, 0, 0, 0, 0, 1, 192, 168, 1, 1};

} // namespace

TEST(ArpFrames, ReplyParserReadsOnlyWholeReplies) {
    const std::tuple<const char *, std::function<void(std::vector<uint8_t> &)>, Parse> cases[] = {
        {"valid", [](std::vector<uint8_t> &) {}, Parse::kOk},
        {"padded to 60", [](std::vector<uint8_t> &f) { f.resize(60, 0); }, Parse::kOk},
        {"41 bytes", [](std::vector<uint8_t> &f) { f.pop_back(); }, Parse::kTooShort},
        {"empty", [](std::vector<uint8_t> &f) { f.clear(); }, Parse::kTooShort},
        {"request", [](std::vector<uint8_t> &f) { f[21] = 1; }, Parse::kWrongType},
        {"operation high byte", [](std::vector<uint8_t> &f) { f[20] = 1; }, Parse::kWrongType},
    };
    for (const auto &[what, change, check] : cases) {
        std::vector<uint8_t> f = kReply;
        change(f);
        ArpReply r{};
        EXPECT_EQ(lanhost_arp_reply_parse(f.data(), f.size(), &r), check) << what;
        EXPECT_TRUE(check != Parse::kOk ||
                    memcmp(&r, "\x02\0\0\0\0\x01\x02\0\0\0\x52\x01\xc0\xa8\x01\x4d\xc0\xa8\x01\x01", 20) == 0);
    }
}

class Arp : public TrackerTest {};

TEST_F(Arp, OnlyAWiredHostWithAnAddressIsProbedAndByOneTimer) {
    const std::tuple<const char *, const char *, bool> cases[] = {
        {"192.168.1.53", "", true},
        {"", "", false},
        {"0.0.0.0", "", false},
        {"192.168.1", "", false},
        {"192.168.1.53", "InternetGatewayDevice.LANDevice.1.WLANConfiguration.9", false},
    };
    for (const auto &[ip, layer2, probed] : cases) {
        lhost *h = add_host("02:00:00:00:52:01", "eth3", ip);
        lanhost_copy_text(h->Layer2Interface, layer2);
        zn_event_lanhost_arpping(h);
        EXPECT_EQ(h->arpState, probed ? 1 : 0) << ip << layer2;
        EXPECT_EQ(h->arpTimer != nullptr, probed) << ip << layer2;
        zn_event_lanhost_arpping(h);
        EXPECT_EQ(event_base_get_num_events(lanhostEventBase, EVENT_BASE_COUNT_ADDED), probed ? 1 : 0);
        TearDown();
    }
}

TEST_F(Arp, TheSweepProbesHostsSilentForSixSeconds) {
    const std::tuple<const char *, uint32_t, int, int, bool> cases[] = {
        {"silent", 600, 1, 0, true},
        {"599", 599, 1, 0, false},
        {"offline", 900, 0, 0, false},
        {"probe outstanding", 900, 1, 1, false},
    };
    for (const auto &[what, ageing, active, arpState, probed] : cases) {
        lhost *h = add_host("02:00:00:00:53:01", "eth1", "192.168.1.53");
        h->active = active;
        h->arpState = arpState;
        brctl_fdb_entry_t records[2] = {};
        macStr_to_bytes(records[0].mac_addr, "02:00:00:00:53:09"); // a MAC without a record
        macStr_to_bytes(records[1].mac_addr, "02:00:00:00:53:01");
        records[0].ageing_timer_value = 900;
        records[1].ageing_timer_value = ageing;
        lanhost_mac_ageing_sweep(records, 2);
        EXPECT_EQ(h->arpTimer != nullptr, probed) << what;
        EXPECT_EQ(h->arpState, probed ? 1 : arpState) << what;
        TearDown();
    }
}

TEST(Macfilter, FlaggedMacsAreReportedInUpperCaseAndNothingElseRuns) {
    ASSERT_TRUE(run("znkernel macfilter off"));
    zn_event_lanhost_handle_macfilter(); // no filter on this gateway

    // The stand-in refuses to write what isn't a MAC text; the kernel's file is taken as it comes.
    ASSERT_TRUE(
        run("znkernel macfilter stat 02:00:00:00:5a:01 3 02:00:00:00:5A:02 0 02:00:00:00:5A:03 1 && "
            "printf '%s 2\\n' '$(touch${IFS}/tmp/pwned)' '02:00:00:00:5A:04;reboot' `printf 'a%.0s' $(seq 120)` "
            ">> /run/znkemu/macfilter/stat"));
    zn_event_lanhost_handle_macfilter();
    EXPECT_EQ(sh("znkernel macfilter table-show").out, "FLG mac:02:00:00:00:5A:01\nFLG mac:02:00:00:00:5A:03\n");
    EXPECT_NE(access("/tmp/pwned", F_OK), 0);
    EXPECT_EQ(sh("vgw stubs").out, "");
    ASSERT_TRUE(run("znkernel macfilter off"));
}
