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
constexpr int kNoClass = -1;
int notified = kNoClass;
} // namespace

int lanhost_macfilter_notify(lhost *, int macfilterClass) {
    notified = macfilterClass;
    return 0;
}

namespace {

// Debian's brctl, each run recorded, with the entry's port named in a fifth
// column as the gateway's brctl prints it.
constexpr const char kRecordingBrctl[] = R"(#!/bin/sh
echo "$*" >> /tmp/brctl.runs
ports=$(for f in /sys/class/net/br0/brif/*/port_no; do d=${f%/port_no}; echo $(($(cat "$f"))) "${d##*/}"; done)
/usr/sbin/brctl "$@" | awk -v ports="$ports" 'BEGIN { n = split(ports, p, "\n")
    for (i = 1; i <= n; i++) { split(p[i], f, " "); name[f[1]] = f[2] } }
    { print $0 (NR > 1 ? "\t" name[$1] : "") }'
)";

enum class Stat { kAbsent, kNamesMac, kNamesOther };
enum class Table { kAbsent, kMacOnItsPort, kMacOnOtherPort };

class MacfilterClass : public TrackerTest {
protected:
    static void SetUpTestSuite() {
        TrackerTest::SetUpTestSuite();
        ASSERT_TRUE(run(
            "for p in eth1 ra0; do ip link add $p type veth peer name $p-peer && ip link set $p master br0 up; done"));
        const std::string path = sh("printf %s \"${PATH%%:*}/brctl\"").out; // first on PATH
        std::ofstream(path) << kRecordingBrctl;
        ASSERT_EQ(chmod(path.c_str(), 0755), 0) << path;
    }
};

TEST_F(MacfilterClass, BrctlRunsOnlyWhenItsColumnCanChangeTheClass) {
    const struct {
        Stat stat;
        Table table;
        const char *port;
        int notified, runs;
    } rows[] = {
        {Stat::kAbsent, Table::kAbsent, "eth1", kMacfilterNewWired, 0},
        {Stat::kAbsent, Table::kMacOnItsPort, "eth1", kMacfilterFiltered, 1},
        {Stat::kAbsent, Table::kMacOnOtherPort, "eth1", kMacfilterNewWired, 1},
        {Stat::kNamesMac, Table::kAbsent, "eth1", kMacfilterFiltered, 0},
        {Stat::kNamesMac, Table::kMacOnItsPort, "eth1", kMacfilterFiltered, 0},
        {Stat::kNamesMac, Table::kMacOnOtherPort, "eth1", kMacfilterFiltered, 0},
        {Stat::kNamesOther, Table::kAbsent, "eth1", kMacfilterNewWired, 0},
        {Stat::kNamesOther, Table::kMacOnItsPort, "eth1", kMacfilterFiltered, 1},
        {Stat::kNamesOther, Table::kMacOnOtherPort, "eth1", kMacfilterNewWired, 1},
        {Stat::kAbsent, Table::kAbsent, "ra0", kNoClass, 0},
        {Stat::kAbsent, Table::kMacOnItsPort, "ra0", kMacfilterFiltered, 1},
        {Stat::kAbsent, Table::kMacOnOtherPort, "ra0", kNoClass, 1},
        {Stat::kNamesMac, Table::kAbsent, "ra0", kMacfilterFiltered, 0},
        {Stat::kNamesMac, Table::kMacOnItsPort, "ra0", kMacfilterFiltered, 0},
        {Stat::kNamesMac, Table::kMacOnOtherPort, "ra0", kMacfilterFiltered, 0},
        {Stat::kNamesOther, Table::kAbsent, "ra0", kNoClass, 0},
        {Stat::kNamesOther, Table::kMacOnItsPort, "ra0", kMacfilterFiltered, 1},
        {Stat::kNamesOther, Table::kMacOnOtherPort, "ra0", kNoClass, 1},
    };
    int row = 0;
    for (const auto &r : rows) {
        char mac[kMacTextSize];
        snprintf(mac, sizeof mac, "02:00:00:00:61:%02x", ++row);
        SCOPED_TRACE("row " + std::to_string(row) + ", " + mac + " on " + r.port);
        const std::string stat = r.stat == Stat::kAbsent     ? "znkernel macfilter off"
                                 : r.stat == Stat::kNamesMac ? std::string("znkernel macfilter stat ") + mac + " 1"
                                                             : "znkernel macfilter stat 02:00:00:00:61:ff 1";
        const std::string table = r.table == Table::kAbsent ? "rm -f /tmp/LanEthmacfilter_table"
                                                            : std::string("echo ") + mac + " - " +
                                                                  (r.table == Table::kMacOnItsPort ? r.port : "eth9") +
                                                                  " > /tmp/LanEthmacfilter_table";
        ASSERT_TRUE(run(stat + " && " + table + " && bridge fdb replace " + mac + " dev " + r.port +
                        " master static && : > /tmp/brctl.runs"));
        uint8_t bytes[6];
        macStr_to_bytes(bytes, mac);
        NeighborAttr attrs[kNdaTableSize] = {};
        attrs[NDA_LLADDR] = {bytes, sizeof bytes};
        notified = kNoClass;
        netlink_layer2_neighborMsg_parse(attrs, int32_t(if_nametoindex(r.port)), RTM_NEWNEIGH);
        EXPECT_NE(list_find_lhost(mac), nullptr);
        EXPECT_EQ(joined({std::to_string(notified), sh("wc -l < /tmp/brctl.runs").out}),
                  joined({std::to_string(r.notified), std::to_string(r.runs) + "\n"}));
        sh(std::string("bridge fdb del ") + mac + " dev " + r.port + " master");
        TearDown();
    }
    EXPECT_TRUE(run("znkernel macfilter off && rm -f /tmp/LanEthmacfilter_table"));
}

} // namespace
