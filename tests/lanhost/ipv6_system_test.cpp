// The unchanged agent and a LAN host with a global IPv6 address: the host's
// addresses reach the store, and dhcp6s and radvd reports make the gateway
// solicit the address they name.
#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sched.h>

#include "shell.h"

using namespace std::chrono_literals;
using namespace zntest;

namespace {

constexpr const char *kMac = "00:11:22:33:44:55";
pid_t agent;

// Pings from the host until its Host object shows want in param.
bool store_learns(const std::string &ping, const char *param, const std::string &want) {
    return eventually(
        [&] {
            sh("vgw host exec h6 ping -6 -c 1 -W 1 " + ping);
            return host_object(kMac)[param] == want;
        },
        30s);
}

// A packet socket made in the host's network namespace, on its eth0.
int capture_in_host() {
    int self = open("/proc/self/ns/net", O_RDONLY), host = open("/run/netns/vgw-h6", O_RDONLY), fd = -1;
    if (setns(host, CLONE_NEWNET) == 0) {
        fd = socket(AF_PACKET, SOCK_RAW, htons(ETH_P_IPV6));
        sockaddr_ll sll{};
        sll.sll_family = AF_PACKET;
        sll.sll_ifindex = int(if_nametoindex("eth0"));
        bind(fd, reinterpret_cast<sockaddr *>(&sll), sizeof sll);
        setns(self, CLONE_NEWNET);
    }
    close(self);
    close(host);
    return fd;
}

} // namespace

class Ipv6Agent : public testing::Test {
protected:
    static void SetUpTestSuite() {
        ASSERT_TRUE(run(
            std::string("vgw lan up && ip -6 addr add 2001:db8:1::1/64 dev br0 nodad && vgw host add h6 eth1 ") + kMac +
            " 2001:db8:1::10/64 && echo 02:00:00:00:00:01 > /etc/macAddrBase && znsUtil -s "
            "InternetGatewayDevice.LANDevice.1.LANHostConfigManagement.IPInterface.1 "
            "X_CT-COM_IPv6Address string 2001:db8:1::1/64"));
        ASSERT_GT(agent = start_agent(), 0);
    }
    static void TearDownTestSuite() { stop_process(agent); }
};

TEST_F(Ipv6Agent, AHostsLinkLocalThenGlobalAddressReachTheStore) {
    ASSERT_TRUE(store_learns("fe80::1%eth0", "X_ZN_IPV6LocalAddress", "fe80::211:22ff:fe33:4455"))
        << sh("znsUtil -l InternetGatewayDevice.LANDevice.1.Hosts").out << file_text(kAgentOut);
    EXPECT_TRUE(store_learns("2001:db8:1::1", "X_ZN_IPV6Address", "2001:db8:1::10"))
        << sh("znsUtil -l InternetGatewayDevice.LANDevice.1.Hosts").out << file_text(kAgentOut);
}

// The host receives the gateway's 32-byte solicitation for the address a
// report names, sent to that address from the gateway's own, with the base
// MAC in its option.
TEST_F(Ipv6Agent, AddressesOfDhcp6sAndRadvdReportsAreSolicited) {
    ASSERT_TRUE(run("vgw host exec h6 ip addr add 2001:db8:1:0:211:22ff:fe33:4455/64 dev eth0"));
    const std::tuple<const char *, const char *, const char *> cases[] = {
        {"/tmp/dhcp6sAddress_unix", "000100012ac0ffee 2001:db8:1::10 3600", "2001:db8:1::10"},
        {"/tmp/radvdprefix_unix", "2001:db8:1:0:: fe80::211:22ff:fe33:4455", "2001:db8:1:0:211:22ff:fe33:4455"},
    };
    for (const auto &[socket, report, target] : cases) {
        const int fd = capture_in_host();
        ASSERT_TRUE(
            run(std::string("python3 " ZN_SOURCE_DIR "/tools/vgw/send.py unix ") + socket + " '" + report + "'"));
        uint8_t want[16], source[16];
        inet_pton(AF_INET6, target, want);
        inet_pton(AF_INET6, "2001:db8:1::1", source);
        EXPECT_TRUE(eventually(
            [&] {
                uint8_t f[2048];
                for (ssize_t n; (n = recv(fd, f, sizeof f, MSG_DONTWAIT)) >= 0;)
                    if (n == 14 + 40 + 32 && f[20] == 58 && f[54] == 135 && !memcmp(f + 22, source, 16) &&
                        !memcmp(f + 38, want, 16) && !memcmp(f + 62, want, 16) &&
                        !memcmp(f + 78, "\x01\x01\x02\x00\x00\x00\x00\x01", 8))
                        return true;
                return false;
            },
            30s))
            << socket;
        close(fd);
    }
}
