// The MAC filter class of a new host, and the runs of "brctl showmacs br0"
// that finding it takes: the command runs only when the wired filter table
// is there and the kernel's MAC filter has not named the MAC already. This
// test links a hook of its own in place of the tracker's empty one, and
// records the class it is given.
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/stat.h>

#include "lanhost_neighbor.h"
#include "tracker.h"

using namespace zntest;

namespace {
constexpr int kNone = -1, kNew = kMacfilterNewWired, kFiltered = kMacfilterFiltered;
int notified = kNone;
} // namespace

int lanhost_macfilter_notify(lhost *, int macfilterClass) { return notified = macfilterClass, 0; }

namespace {

// Debian's brctl, each run recorded, with the entry's port in a fifth column
// as the gateway's brctl prints it.
constexpr const char kRecordingBrctl[] = R"sh(#!/bin/sh
echo "$*" >> /tmp/brctl.runs
/usr/sbin/brctl "$@" | awk -v fdb="$(bridge fdb show br br0)" 'BEGIN { n = split(fdb, l, "\n")
    for (i = 1; i <= n; i++) { split(l[i], f, " "); port[f[1]] = f[3] } } { print $0 "\t" port[$2] }'
)sh";

using MacfilterClass = TrackerTest;

TEST_F(MacfilterClass, BrctlRunsOnlyWhenItsColumnCanChangeTheClass) {
    ASSERT_TRUE(run("for p in eth1 ra0; do ip link add $p type veth peer name $p-peer && ip link set $p master br0 up; "
                    "done && znkernel macfilter off"));
    const std::string brctl = sh("printf %s \"${PATH%%:*}/brctl\"").out; // first on PATH
    std::ofstream(brctl) << kRecordingBrctl;
    ASSERT_EQ(chmod(brctl.c_str(), 0755), 0) << brctl;
    // The MAC that the MAC filter's stat file names (null: no file; MAC: the
    // host's), the port that the wired table names for the host's MAC (null:
    // no table; PORT: its own), the class of a host on eth1 and on ra0, and
    // brctl's runs.
    const struct {
        const char *stat, *table;
        int eth1, ra0, runs;
    } rows[] = {
        {nullptr, nullptr, kNew, kNone, 0},
        {nullptr, "PORT", kFiltered, kFiltered, 1},
        {nullptr, "eth9", kNew, kNone, 1},
        {"MAC", nullptr, kFiltered, kFiltered, 0},
        {"MAC", "PORT", kFiltered, kFiltered, 0},
        {"MAC", "eth9", kFiltered, kFiltered, 0},
        {"02:00:00:00:61:ff", nullptr, kNew, kNone, 0},
        {"02:00:00:00:61:ff", "PORT", kFiltered, kFiltered, 1},
        {"02:00:00:00:61:ff", "eth9", kNew, kNone, 1},
    };
    auto own = [](const char *column, const char *mark, const std::string &value) {
        return std::string(strcmp(column, mark) == 0 ? value : column);
    };
    int row = 0;
    for (const auto &r : rows) {
        for (const char *port : {"eth1", "ra0"}) {
            char mac[kMacTextSize];
            snprintf(mac, sizeof mac, "02:00:00:00:61:%02x", ++row & 0xFF);
            const std::string stat = r.stat ? "stat " + own(r.stat, "MAC", mac) + " 1" : "off",
                              table = r.table ? "echo " + std::string(mac) + " - " + own(r.table, "PORT", port) + " >"
                                              : "rm -f";
            SCOPED_TRACE(stat + "; " + table + "; " + mac + " on " + port);
            ASSERT_TRUE(run("znkernel macfilter " + stat + " && " + table + " /tmp/LanEthmacfilter_table && " +
                            "bridge fdb replace " + mac + " dev " + port + " master static && : > /tmp/brctl.runs"));
            uint8_t bytes[6];
            macStr_to_bytes(bytes, mac);
            NeighborAttr attrs[kNdaTableSize] = {};
            attrs[NDA_LLADDR] = {bytes, sizeof bytes};
            notified = kNone;
            netlink_layer2_neighborMsg_parse(attrs, int32_t(if_nametoindex(port)), RTM_NEWNEIGH);
            EXPECT_EQ(joined({std::to_string(notified), sh("wc -l < /tmp/brctl.runs").out}),
                      joined({std::to_string(port[0] == 'e' ? r.eth1 : r.ra0), std::to_string(r.runs) + "\n"}));
            TearDown();
        }
    }
    EXPECT_TRUE(run("znkernel macfilter off && rm -f /tmp/LanEthmacfilter_table"));
}

} // namespace
