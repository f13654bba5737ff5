// Global IPv6 addresses that dhcp6s leases and radvd announces: a neighbor
// solicitation to each makes the kernel resolve it, and the neighbor
// reader then files the address under its host.
#include "lanhost_prefix.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "agent_log.h"
#include "lanhost_icmp6.h"
#include "lanhost_read.h"
#include "unique_fd.h"

namespace {

constexpr size_t kMinAddressText = 6;             // shorter texts are taken for no address
constexpr const char kLinkLocalHead[] = "fe80::"; // RFC 4291, section 2.5.6
// The gateway's own address in a new prefix needs time to come up before a
// solicitation can leave from it; the whole tracker waits meanwhile.
constexpr unsigned kPrefixSettleSeconds = 10;
constexpr ReadRule kReportRead{ReadFailure::kErrno, true};

// The next blank-separated field into dst, empty when there is none; false
// when it is longer than dst holds.
template <size_t N> bool take_field(ByteCursor *text, char (&dst)[N]) {
    ByteCursor field;
    text->field(' ', &field);
    return lanhost_copy_text(dst, field);
}

// Steps of sendNS after its socket exists.
void send_ns_on(int s, const char *address) {
    if (lanhost_bind_to_bridge(s) < 0) {
        perror("setsockopt");
        return;
    }
    NeighborSolicit ns;
    in6_addr own;
    if (!lanhost_ns_prepare(address, &ns))
        return;
    const int ownState = lanhost_own_ipv6_address(&own);
    if (ownState < 0)
        ZN_LOG_AS(sendNS, 1, "fail to get LANDevice.1.LANHostConfigManagement.IPInterface.1.X_CT-COM_IPv6Address\r\n");
    if (ownState != 1)
        return;
    sockaddr_in6 source{};
    source.sin6_family = AF_INET6;
    source.sin6_addr = own;
    if (bind(s, reinterpret_cast<sockaddr *>(&source), sizeof source) < 0)
        perror("bind");
    if (sendto(s, ns.frame, sizeof ns.frame, 0, reinterpret_cast<sockaddr *>(&ns.dest), sizeof ns.dest) < 0)
        perror("sendNS sendto fail");
}

} // namespace

Parse lanhost_dhcp6s_lease_parse(const char *text, size_t len, Dhcp6sLease *lease) {
    *lease = Dhcp6sLease{};
    ByteCursor c(text, len);
    char leaseTime[kDecimalRoom];
    if (!take_field(&c, lease->duid) || !take_field(&c, lease->address) || !take_field(&c, leaseTime)) {
        *lease = Dhcp6sLease{};
        return Parse::kTooLong;
    }
    lease->leaseTime = strtoll(leaseTime, nullptr, 10);
    return Parse::kOk;
}

Parse lanhost_radvd_address(const char *text, size_t len, char (&out)[kIpv6TextRoom]) {
    out[0] = '\0';
    ByteCursor c(text, len);
    char prefix[kIpv6TextRoom], linkLocal[kIpv6TextRoom];
    if (!take_field(&c, prefix) || !take_field(&c, linkLocal))
        return Parse::kTooLong;
    const char *iid = strstr(linkLocal, kLinkLocalHead);
    if (strlen(linkLocal) < kMinAddressText || !iid)
        return Parse::kMissing;
    // "2001:db8:1:2::" keeps "2001:db8:1:2:"; a prefix without "::" stays whole.
    if (char *gap = strstr(prefix, "::"))
        gap[1] = '\0';
    char joined[sizeof prefix + sizeof linkLocal];
    snprintf(joined, sizeof joined, "%s%s", prefix, iid + strlen(kLinkLocalHead));
    if (strlen(joined) < kMinAddressText)
        return Parse::kMissing;
    if (!lanhost_copy_text(out, joined)) {
        out[0] = '\0';
        return Parse::kTooLong;
    }
    return Parse::kOk;
}

int sendNS(const char *address) {
    const UniqueFd s(socket(AF_INET6, SOCK_RAW, IPPROTO_ICMPV6));
    if (!s) {
        perror("socket");
        return 0;
    }
    send_ns_on(s.get(), address);
    return 0;
}

int prefixEventDispatch(const char *text) {
    if (!text[0]) {
        ZN_LOG(1, "read buf is empty\n");
        return -1;
    }
    char address[kIpv6TextRoom];
    const Parse check = lanhost_radvd_address(text, strlen(text), address);
    if (check == Parse::kTooLong)
        LANHOST_LOG(1, "radvd report too long for an address: %s", text);
    if (check != Parse::kOk)
        return 0;
    LANHOST_LOG(3, "prefix=%s\n", address);
    sleep(kPrefixSettleSeconds);
    sendNS(address);
    return 0;
}

void zn_event_lanhost_dhcp6sAddrSockRead_cb(evutil_socket_t fd, short, void *) {
    char buf[kDaemonDatagram + 1];
    // A failed read leaves the buffer empty, which sends nothing.
    lanhost_read_once(fd, buf, sizeof buf, kReportRead);
    Dhcp6sLease lease;
    const Parse check = lanhost_dhcp6s_lease_parse(buf, strlen(buf), &lease);
    LANHOST_LOG(3, "receive dhcp6s buffer:%s", buf);
    if (check != Parse::kOk) {
        LANHOST_LOG(1, "dhcp6s report field too long: %s", buf);
        return;
    }
    if (strlen(lease.address) >= kMinAddressText)
        sendNS(lease.address);
}

void zn_event_lanhost_radvdSockRead_cb(evutil_socket_t fd, short, void *) {
    char buf[kDaemonDatagram + 1];
    // A failed read leaves the buffer empty, which prefixEventDispatch logs.
    lanhost_read_once(fd, buf, sizeof buf, kReportRead);
    LANHOST_LOG(3, "receive radvd buffer:%s", buf);
    prefixEventDispatch(buf);
}
