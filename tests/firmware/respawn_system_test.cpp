// The installed agent of a firmware build (left in build/firmware by
// firmware_install_test) as a gateway runs it: busybox init, PID 1 of a PID
// namespace of its own, starts it by the shipped inittab line and starts it
// again after a kill. Init and all it starts die with that namespace; a
// reboot(2) of init there ends only the namespace, and the reboot command is
// the virtual gateway's stub.

#include "shell.h"

using namespace std::chrono_literals;
using namespace zntest;

namespace {

const std::string kTree = ZN_BUILD_DIR "/firmware";
std::string init; // the unshare whose child is busybox init

// The installed agent that init runs; empty when there is none.
std::string init_agent() {
    return sh("for p in $(pidof zn_event_agent); do [ $(tr -d '\\0' < /proc/$p/cmdline) = /usr/sbin/zn_event_agent ] && "
              "[ $(ps -o ppid= -p $(ps -o ppid= -p $p)) = " + init + " ] && echo -n $p; done")
        .out;
}

// A LAN host that joins and takes a lease: what its Host object must show.
std::string joins(const std::string &name, const std::string &port, const std::string &mac) {
    return run("vgw host add " + name + " " + port + " " + mac) ? "IPAddress=" + take_lease(name) + ";Active=1" : "";
}

bool shows(const std::string &mac, const std::string &want) {
    return eventually([&] { return differences(host_object(mac), want).empty(); });
}

} // namespace

TEST(FirmwareInit, BusyboxInitRespawnsTheKilledAgentAndItServesAgain) {
    ASSERT_TRUE(run("vgw lan up && cp -a " + kTree + "/root/. / && cp " ZN_SOURCE_DIR "/packaging/inittab /etc/inittab"));
    ASSERT_TRUE(start_dnsmasq(3600));
    ASSERT_TRUE(starts_flushed([&] {
        init = sh("LD_LIBRARY_PATH=" + kTree + "/sdk-log/lib unshare --pid --fork --mount-proc --kill-child "
                  "busybox init </dev/null >/tmp/init.out 2>&1 & echo -n $!")
                   .out;
    })) << file_text("/tmp/init.out");
    const std::string first = init_agent(), pc1 = joins("pc1", "eth1", "02:00:00:00:60:01");
    ASSERT_NE(first, "") << sh("ps -ef").out;
    ASSERT_TRUE(shows("02:00:00:00:60:01", pc1)) << pc1;

    std::string second;
    ASSERT_TRUE(starts_flushed([&] {
        sh("kill -KILL " + first);
        eventually([&] { return (second = init_agent()) != "" && second != first; }, 5s);
    })) << file_text("/tmp/init.out");
    ASSERT_NE(second, "") << file_text("/tmp/init.out");
    const std::string pc2 = joins("pc2", "lan2", "02:00:00:00:60:02");
    EXPECT_TRUE(shows("02:00:00:00:60:02", pc2)) << pc2;
    EXPECT_EQ(differences(host_object("02:00:00:00:60:01"), pc1), "");

    sh("kill -KILL " + init);
    EXPECT_TRUE(eventually([] { return sh("pidof zn_event_agent || kill -0 " + init).status != 0; }));
}
