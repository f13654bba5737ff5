// Lease messages on the lease-time socket: "MAC,lease,IP,name" for an IPv4
// lease, "DUID,lease,..." for an IPv6 one.
#include "lanhost_dhcp.h"

#include <sys/socket.h>

#include <cstdlib>
#include <cstring>
#include <strings.h>

#include "agent_log.h"
#include "lanhost.h"
#include "lanhost_read.h"
#include "lanhost_store.h"

namespace {

constexpr size_t kMacField = 0, kLeaseField = 1, kIpField = 2, kNameField = 3;
constexpr size_t kNameMinLength = 2;
// Names that the DHCP side writes for a client that gave none.
constexpr const char *kNoNames[] = {"*", "(null)"};

bool no_host_name(const LeaseMessage &msg) {
    if (msg.count <= kNameField)
        return true;
    const char *name = msg.field[kNameField];
    if (strlen(name) < kNameMinLength)
        return true;
    for (const char *none : kNoNames)
        if (strcmp(name, none) == 0)
            return true;
    return false;
}

} // namespace

void lanhost_lease_message_parse(const char *buf, size_t len, LeaseMessage *msg) {
    memset(msg, 0, sizeof *msg);
    lanhost_copy_text(msg->text, buf, len);
    ByteCursor rest(msg->text, strlen(msg->text)), field;
    while (msg->count < kLeaseFields && rest.field(',', &field))
        lanhost_copy_text(msg->field[msg->count++], field);
}

void zn_event_lanhost_dhcpSockRead_cb(evutil_socket_t fd, short, void *) {
    char buf[kLeaseMessageMax + 1];
    // A failed read leaves the buffer empty, which has no fields.
    const ssize_t n = lanhost_read_once(fd, buf, sizeof buf, {ReadFailure::kErrno, true});
    LeaseMessage msg;
    lanhost_lease_message_parse(buf, n < 0 ? 0 : size_t(n), &msg);
    if (msg.count <= kLeaseField)
        return;
    const long lease = strtol(msg.field[kLeaseField], nullptr, 10);
    if (strlen(msg.field[kMacField]) >= kDuidMinLength) {
        updateIpv6LeaseTime(msg.field[kMacField], lease);
        return;
    }
    if (!list_find_lhost(msg.field[kMacField]))
        LANHOST_LOG(1, "input lhost is not valid!!");
    zn_event_lanhost_update_dhcp_LeaseTime(msg);
}

int zn_event_lanhost_update_dhcp_LeaseTime(const LeaseMessage &msg) {
    LANHOST_LOG(3, "buff=%s", msg.text);
    if (msg.count <= kIpField) {
        LANHOST_LOG(3, "!!!! buf no ip");
        return 0;
    }
    // Whatever else the field holds goes on as the host's address: this path
    // makes the source "DHCP", so the address never reaches a lease file search.
    const char *ip = msg.field[kIpField];
    if (ip[0] == '*') {
        LANHOST_LOG(3, "ip=%s invalid", ip);
        return 0;
    }
    lhost *host = list_find_lhost(msg.field[kMacField]);
    if (!host) {
        LANHOST_LOG(3, "!!!! lhost=NULL mac=%s!!!!", msg.field[kMacField]);
        return 0;
    }
    host->active = 1;
    lanhost_copy_text(host->ipAddrSource, "DHCP");
    lanhost_copy_text(host->HostName, no_host_name(msg) ? "unknown" : msg.field[kNameField]);
    host->dhcpLeasetime = strtol(msg.field[kLeaseField], nullptr, 10);
    if (const auto *obj = static_cast<const char *>(wrapperZns_get_lanhost_byMac(host->mac))) {
        const char *stored = obj + kHostIpAddressAt;
        if (strcmp(stored, ip) != 0)
            LANHOST_LOG(3, "!!!! warning, ip diff msg_ip=%s lanhost_obj->IPAddress=%s!!!!", ip, stored);
    } else if (strcmp(host->ipAddr, ip) != 0) {
        LANHOST_LOG(3, "!!!! warning, ip diff msg_ip=%s lhost->ipAddr=%s!!!!", ip, host->ipAddr);
    }
    lanhost_copy_text(host->ipAddr, ip);
    wrapperZns_lanhost_update(host->mac, ip, AF_INET, 0);
    return 0;
}

int updateIpv6LeaseTime(const char *duid, long leaseTime) {
    const uint8_t *host = nullptr;
    lanhost_store_scan(storeHandle, kOidHost, wrapperZns_lanhost_get_maxNum(), [&](int, const uint8_t *object) {
        if (object && strcasecmp(reinterpret_cast<const char *>(object + kHostDuidAt), duid) == 0)
            host = object;
        return host != nullptr;
    });
    if (!host || host[kHostIpv6ActiveAt] != 1)
        return 0;
    const int32_t lease = int32_t(leaseTime);
    lanhost_store_set_one(storeHandle, host, "X_ZN_V6LeaseTimeRemaining", ZNS_TYPE_INT32, &lease);
    return 0;
}
