// Global IPv6 addresses that dhcp6s leases and radvd announces: a neighbour
// solicitation to each makes the kernel resolve it, and the neighbour
// reader then files the address under its host.
#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "agent_log.h"
#include "byte_cursor.h"
#include "lanhost.h"
#include "lanhost_ipv6.h"
#include "lanhost_table.h"

namespace {

constexpr size_t kMinAddressText = 6; // shorter texts are taken for no address
constexpr const char kLinkLocalHead[] = "fe80::";
constexpr size_t kLeaseTimeRoom = 24; // a signed 64-bit decimal with room to spare
// The gateway's own address in a new prefix needs time to come up before a
// solicitation can leave from it; the whole tracker waits meanwhile.
constexpr unsigned kPrefixSettleSeconds = 10;

bool blank(uint8_t c) { return isspace(c) != 0; }

// The next blank-separated field of a text; false at its end, where a NUL
// ends it as well.
bool next_field(ByteCursor *text, ByteCursor *field) {
    while (text->left() && blank(*text->peek()))
        text->skip(1);
    size_t n = 0;
    while (n < text->left() && text->peek()[n] && !blank(text->peek()[n]))
        n++;
    return n > 0 && text->sub(n, field);
}

// The next field into dst, empty when there is none; false when it is
// longer than dst holds.
template <size_t N> bool take_field(ByteCursor *text, char (&dst)[N]) {
    ByteCursor field(nullptr, 0);
    if (!next_field(text, &field)) {
        dst[0] = '\0';
        return true;
    }
    return copy_text(dst, reinterpret_cast<const char *>(field.peek()), field.left());
}

void recv_report(evutil_socket_t fd, char (&buf)[kDaemonDatagram + 1]) {
    memset(buf, 0, sizeof buf);
    if (recvfrom(fd, buf, kDaemonDatagram, 0, nullptr, nullptr) < 0)
        LANHOST_LOG(1, "read error: %s\n", strerror(errno));
}

// Steps of sendNS after its socket exists; the caller closes it.
void send_ns_on(int s, const char *address) {
    if (lanhost_bind_to_bridge(s) < 0) {
        perror("setsockopt");
        return;
    }
    NeighbourSolicit ns;
    in6_addr own;
    if (!lanhost_ns_prepare(address, &ns))
        return;
    const int ownState = lanhost_own_ipv6_address(&own);
    if (ownState < 0)
        ZN_LOG(1, "fail to get LANDevice.1.LANHostConfigManagement.IPInterface.1.X_CT-COM_IPv6Address\r\n");
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

bool lanhost_dhcp6s_lease_parse(const char *text, size_t len, dhcp6sLease *lease) {
    memset(lease, 0, sizeof *lease);
    ByteCursor c(text, len);
    char leaseTime[kLeaseTimeRoom];
    if (!take_field(&c, lease->duid) || !take_field(&c, lease->address) || !take_field(&c, leaseTime)) {
        memset(lease, 0, sizeof *lease);
        return false;
    }
    lease->leaseTime = strtoll(leaseTime, nullptr, 10);
    return true;
}

RadvdCheck lanhost_radvd_address(const char *text, size_t len, char (&out)[44]) {
    out[0] = '\0';
    ByteCursor c(text, len);
    char prefix[44], linkLocal[44];
    if (!take_field(&c, prefix) || !take_field(&c, linkLocal))
        return kRadvdTooLong;
    const char *iid = strstr(linkLocal, kLinkLocalHead);
    if (strlen(linkLocal) < kMinAddressText || !iid)
        return kRadvdNoAddress;
    // "2001:db8:1:2::" keeps "2001:db8:1:2:"; a prefix without "::" stays whole.
    if (char *gap = strstr(prefix, "::"))
        gap[1] = '\0';
    char joined[sizeof prefix + sizeof linkLocal];
    snprintf(joined, sizeof joined, "%s%s", prefix, iid + strlen(kLinkLocalHead));
    if (strlen(joined) < kMinAddressText)
        return kRadvdNoAddress;
    if (!copy_text(out, joined)) {
        out[0] = '\0';
        return kRadvdTooLong;
    }
    return kRadvdAddress;
}

int sendNS(const char *address) {
    int s = socket(AF_INET6, SOCK_RAW, IPPROTO_ICMPV6);
    if (s < 0) {
        perror("socket");
        return 0;
    }
    send_ns_on(s, address);
    close(s);
    return 0;
}

int prefixEventDispatch(const char *text) {
    if (!text[0]) {
        ZN_LOG(1, "read buf is empty\n");
        return -1;
    }
    char address[44];
    const RadvdCheck check = lanhost_radvd_address(text, strlen(text), address);
    if (check == kRadvdTooLong)
        LANHOST_LOG(1, "radvd report too long for an address: %s", text);
    if (check != kRadvdAddress)
        return 0;
    LANHOST_LOG(3, "prefix=%s\n", address);
    sleep(kPrefixSettleSeconds);
    sendNS(address);
    return 0;
}

void zn_event_lanhost_dhcp6sAddrSockRead_cb(evutil_socket_t fd, short, void *) {
    char buf[kDaemonDatagram + 1];
    recv_report(fd, buf);
    dhcp6sLease lease;
    const bool fits = lanhost_dhcp6s_lease_parse(buf, strlen(buf), &lease);
    LANHOST_LOG(3, "receive dhcp6s buffer:%s", buf);
    if (!fits) {
        LANHOST_LOG(1, "dhcp6s report field too long: %s", buf);
        return;
    }
    if (strlen(lease.address) >= kMinAddressText)
        sendNS(lease.address);
}

void zn_event_lanhost_radvdSockRead_cb(evutil_socket_t fd, short, void *) {
    char buf[kDaemonDatagram + 1];
    recv_report(fd, buf);
    LANHOST_LOG(3, "receive radvd buffer:%s", buf);
    prefixEventDispatch(buf);
}
