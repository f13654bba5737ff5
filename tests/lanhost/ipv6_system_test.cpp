// The unchanged agent and a LAN host with a global IPv6 address: the host's
// addresses reach the store, and dhcp6s and radvd reports make the gateway
// solicit the address they name.
#include <gtest/gtest.h>
#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <string>

#include "agent_process.h"
#include "shell.h"

using namespace std::chrono_literals;
using zntest::eventually;
using zntest::file_text;
using zntest::sh;

namespace {

constexpr const char *kAgentOut = "/tmp/agent_ipv6.out";
pid_t agent;

bool has(const std::string &text, const std::string &part) { return text.find(part) != std::string::npos; }

// Pings from the host until the store's Hosts subtree shows want.
bool store_learns(const std::string &ping, const std::string &want) {
    return eventually(
        [&] {
            sh("vgw host exec h6 ping -6 -c 1 -W 1 " + ping);
            return has(sh("znsUtil -l InternetGatewayDevice.LANDevice.1.Hosts").out, want);
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

// Sends report to the agent's socket at path; then whether the host receives
// the gateway's 32-byte solicitation for target, sent to target itself from
// the gateway's own address, with the base MAC in its option.
bool solicited(const char *path, const std::string &report, const char *target) {
    int fd = capture_in_host(), s = socket(AF_UNIX, SOCK_DGRAM, 0);
    sockaddr_un to{AF_UNIX, {}};
    snprintf(to.sun_path, sizeof to.sun_path, "%s", path);
    sendto(s, report.data(), report.size(), 0, reinterpret_cast<sockaddr *>(&to), sizeof to);
    close(s);
    uint8_t want[16], source[16];
    inet_pton(AF_INET6, target, want);
    inet_pton(AF_INET6, "2001:db8:1::1", source);
    bool seen = eventually(
        [&] {
            uint8_t f[2048];
            for (ssize_t n; (n = recv(fd, f, sizeof f, MSG_DONTWAIT)) >= 0;)
                if (n == 14 + 40 + 32 && f[20] == 58 && f[54] == 135 && !memcmp(f + 22, source, 16) &&
                    !memcmp(f + 38, want, 16) && !memcmp(f + 62, want, 16) &&
                    !memcmp(f + 78, "\x01\x01\x02\x00\x00\x00\x00\x01", 8))
                    return true;
            return false;
        },
        30s);
    close(fd);
    return seen;
}

} // namespace

class Ipv6Agent : public testing::Test {
protected:
    static void SetUpTestSuite() {
        ASSERT_EQ(sh("vgw lan up && ip -6 addr add 2001:db8:1::1/64 dev br0 nodad && "
                     "vgw host add h6 eth1 00:11:22:33:44:55 2001:db8:1::10/64 && "
                     "echo 02:00:00:00:00:01 > /etc/macAddrBase && znsUtil -s "
                     "InternetGatewayDevice.LANDevice.1.LANHostConfigManagement.IPInterface.1 "
                     "X_CT-COM_IPv6Address string 2001:db8:1::1/64")
                      .status,
                  0);
        agent = zntest::start_agent(kAgentOut);
        ASSERT_TRUE(eventually([] {
            std::string sockets = file_text("/proc/net/unix");
            return has(sockets, "/tmp/dhcp6sAddress_unix") && has(sockets, "/tmp/radvdprefix_unix");
        }));
    }
    static void TearDownTestSuite() { zntest::stop_process(agent); }
};

TEST_F(Ipv6Agent, AHostsLinkLocalThenGlobalAddressReachTheStore) {
    ASSERT_TRUE(store_learns("fe80::1%eth0", ".X_ZN_IPV6LocalAddress=fe80::211:22ff:fe33:4455\n"))
        << sh("znsUtil -l InternetGatewayDevice.LANDevice.1.Hosts").out << file_text(kAgentOut);
    EXPECT_TRUE(store_learns("2001:db8:1::1", ".X_ZN_IPV6Address=2001:db8:1::10\n"))
        << sh("znsUtil -l InternetGatewayDevice.LANDevice.1.Hosts").out << file_text(kAgentOut);
}

TEST_F(Ipv6Agent, ADhcp6sLeaseIsSolicitedFromTheGatewaysOwnAddress) {
    EXPECT_TRUE(solicited("/tmp/dhcp6sAddress_unix", "000100012ac0ffee 2001:db8:1::10 3600", "2001:db8:1::10"));
}

TEST_F(Ipv6Agent, ARadvdPrefixJoinedWithTheInterfaceIdentifierIsSolicited) {
    ASSERT_EQ(sh("vgw host exec h6 ip addr add 2001:db8:1:0:211:22ff:fe33:4455/64 dev eth0").status, 0);
    EXPECT_TRUE(solicited("/tmp/radvdprefix_unix", "2001:db8:1:0:: fe80::211:22ff:fe33:4455",
                          "2001:db8:1:0:211:22ff:fe33:4455"));
}
