// Publication of a host record in the store: its Host object, how its IPv4
// address was obtained, its customise object and the count of active hosts.
#include "lanhost_store.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/sysinfo.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "agent_log.h"
#include "lanhost.h"
#include "lanhost_lease_search.h"
#include "lanhost_port.h"
#include "lanhost_prefix.h"
#include "unique_fd.h"

namespace {

constexpr const char kDnsmasqLeaseFile[] = "/etc/dnsmasq.leases";
constexpr const char kDnsmasqLeaseLock[] = "/etc/dnsmasq.leases.lock";
constexpr const char kDhcp6sLeaseFile[] = "/etc/dhcp6s.leases";
constexpr size_t kDnsmasqLineMax = 127, kDhcp6sLineMax = 255;

bool wrapperUtil_search_dhcpleasefile(lhost *host);

// The lease file's line for the host's address, read under the DHCP server's
// lock; false when there is none. Only an address is searched for, so that
// "." is the one character with a meaning of its own in the search.
bool dnsmasq_lease_line(const lhost *host, char (&line)[kDnsmasqLineMax + 1]) {
    if (!ipv4_str_is_valid(host->ipAddr)) {
        LANHOST_LOG_AS(wrapperUtil_search_dhcpleasefile, 1, "not an IPv4 address [%s], lease file not searched",
                       host->ipAddr);
        return false;
    }
    const UniqueFd lock(open(kDnsmasqLeaseLock, O_WRONLY | O_CREAT | O_TRUNC, 0666));
    int locked = -1;
    while (lock && (locked = flock(lock.get(), LOCK_EX)) != 0 && errno == EINTR) {
    }
    if (locked != 0) {
        LANHOST_LOG_AS(wrapperUtil_search_dhcpleasefile, 1, "lock fail");
        return false;
    }
    const bool found = lanhost_lease_first_line(host->ipAddr, kDnsmasqLeaseFile, line, sizeof line);
    flock(lock.get(), LOCK_UN);
    return found;
}

// Takes name, source and lease time from the lease file when it has a line
// for the host's address; whether it had.
bool wrapperUtil_search_dhcpleasefile(lhost *host) {
    char line[kDnsmasqLineMax + 1];
    if (host->ipAddr[0] == '\0' || !dnsmasq_lease_line(host, line))
        return false;
    DnsmasqLease lease;
    lanhost_dnsmasq_lease_scan(line, strlen(line), &lease);
    lanhost_copy_text(host->HostName, lease.hostName);
    lanhost_copy_text(host->ipAddrSource, lease.source);
    host->dhcpLeasetime = lease.leaseTime;
    return true;
}

// A snooped request of the host tells the source and name; it is used up.
void take_dhcp_request(lhost *host, const char *lowerMac, const char *addr) {
    dhcpRequestEntry *entry = list_find_dhcpRequestEntry(lowerMac);
    if (!entry)
        return;
    if (strcmp(entry->requestedIp, addr) == 0)
        lanhost_copy_text(host->ipAddrSource, "DHCP");
    if (entry->hostName[0])
        lanhost_copy_text(host->HostName, entry->hostName);
    list_del_dhcpRequestEntry(entry);
}

int wrapperZns_lanhost_add_index() {
    const int index = lanhost_store_scan(storeHandle, kOidHost, wrapperZns_lanhost_get_maxNum(),
                                         [](int, const uint8_t *object) { return object == nullptr; });
    if (index)
        LANHOST_LOG(4, "addIdx=%d", index);
    else
        LANHOST_LOG(1, "zns obj add idx fail");
    return index;
}

// When an IPv4 parameter goes into the list; the value comes from the record.
enum class Ipv4Rule {
    kText,    // record text at recordAt: not empty, and for an existing object different
    kLease,   // dhcpLeasetime: always for a new object, else when it differs
    kDevtype, // devtype: not 0, and for an existing object different
};

struct Ipv4Param {
    const char *name;
    const char *label; // of the "set value: " log line
    Ipv4Rule rule;
    size_t objectAt;
    size_t recordAt;
};

// In the order of the list, after StartUptime and Active.
constexpr Ipv4Param kIpv4Params[] = {
    {"AddressSource", "ipAddrSource", Ipv4Rule::kText, kHostAddressSourceAt, offsetof(lhost, ipAddrSource)},
    {"LeaseTimeRemaining", "dhcpLeasetime", Ipv4Rule::kLease, kHostLeaseTimeAt, 0},
    {"Vendor", "Vendor", Ipv4Rule::kText, kHostVendorAt, offsetof(lhost, Vendor)},
    {"HostName", "HostName", Ipv4Rule::kText, kHostHostNameAt, offsetof(lhost, HostName)},
    {"DeviceType", "devtype", Ipv4Rule::kDevtype, kHostDeviceTypeAt, 0},
    {"Layer2Interface", "Layer2Interface", Ipv4Rule::kText, kHostLayer2InterfaceAt, offsetof(lhost, Layer2Interface)},
    {"InterfaceType", "interfacetype", Ipv4Rule::kText, kHostInterfaceTypeAt, offsetof(lhost, interfacetype)},
    {"IPAddress", "ipAddr", Ipv4Rule::kText, kHostIpAddressAt, offsetof(lhost, ipAddr)},
};

// Adds the parameter when its rule says so; whether it did.
bool add_ipv4_param(const Ipv4Param &p, const lhost *host, const uint8_t *object, zns_param_list_t *list) {
    switch (p.rule) {
    case Ipv4Rule::kText: {
        const char *value = reinterpret_cast<const char *>(host) + p.recordAt;
        if (value[0] == '\0' || (object && strcmp(value, reinterpret_cast<const char *>(object + p.objectAt)) == 0))
            return false;
        setParameterToList(list, p.name, ZNS_TYPE_STRING, value);
        LANHOST_LOG_AS(wrapperZns_lanhost_update, 4, "set value: %s=%s", p.label, value);
        return true;
    }
    case Ipv4Rule::kLease: {
        if (object && host->dhcpLeasetime == int64_t(lanhost_field<int32_t>(object, p.objectAt)))
            return false;
        const int32_t value = int32_t(uint32_t(host->dhcpLeasetime));
        setParameterToList(list, p.name, ZNS_TYPE_INT32, &value);
        LANHOST_LOG_AS(wrapperZns_lanhost_update, 4, "set value: %s=%d", p.label, value);
        return true;
    }
    case Ipv4Rule::kDevtype: {
        const uint32_t value = uint32_t(host->devtype);
        if (value == 0 || (object && value == lanhost_field<uint32_t>(object, p.objectAt)))
            return false;
        setParameterToList(list, p.name, ZNS_TYPE_UINT32, &value);
        LANHOST_LOG_AS(wrapperZns_lanhost_update, 4, "set value: %s=%d", p.label, host->devtype);
        return true;
    }
    }
    return false;
}

// The IPv4 form; returns the number of parameters it put in the list.
int ipv4_params(lhost *host, const char *lowerMac, const char *addr, const uint8_t *object, uint32_t uptime,
                zns_param_list_t *list) {
    wrapperZns_offlineLanHost_delete(host->mac);
    if (host->ipAddrSource[0] == '\0') {
        LANHOST_LOG_AS(wrapperZns_lanhost_update, 4, "lhost->ipAddrSource=[] set to static");
        lanhost_copy_text(host->ipAddrSource, "Static");
        host->dhcpLeasetime = 0;
    }
    if (strcmp(host->ipAddrSource, "Static") == 0 && !wrapperUtil_search_dhcpleasefile(host))
        take_dhcp_request(host, lowerMac, addr);
    if (host->Vendor[0] == '\0')
        lanhost_copy_text(host->Vendor, "unknown");
    if (host->HostName[0] == '\0') {
        LANHOST_LOG_AS(wrapperZns_lanhost_update, 4, "lhost->HostName=[] set to PC/PHONE");
        lanhost_copy_text(host->HostName, host->devtype == 1 ? "Phone" : "PC");
    }
    int count = 0;
    if (!object || lanhost_field<uint8_t>(object, kHostActiveAt) == 0) {
        const uint8_t active = 1;
        setParameterToList(list, "StartUptime", ZNS_TYPE_UINT32, &uptime);
        setParameterToList(list, "Active", ZNS_TYPE_BOOL, &active);
        LANHOST_LOG_AS(wrapperZns_lanhost_update, 4, "set value: Active=%d", active);
        count += 2;
    }
    for (const Ipv4Param &p : kIpv4Params)
        count += add_ipv4_param(p, host, object, list);
    LANHOST_LOG_AS(wrapperZns_lanhost_update, 4, "set value zns paraCnt=%d", count);
    return count;
}

// The global address's lease from the dhcp6s lease file, -1 without a line.
void dhcp6s_lease_params(const char *addr, zns_param_list_t *list) {
    const int32_t none = -1;
    setParameterToList(list, "X_ZN_V6LeaseTimeRemaining", ZNS_TYPE_INT32, &none);
    in6_addr parsed;
    char line[kDhcp6sLineMax + 1];
    if (inet_pton(AF_INET6, addr, &parsed) != 1 || !lanhost_lease_first_line(addr, kDhcp6sLeaseFile, line, sizeof line))
        return;
    Dhcp6sLease lease;
    if (lanhost_dhcp6s_lease_parse(line, strlen(line), &lease) != Parse::kOk) {
        LANHOST_LOG_AS(wrapperZns_lanhost_update, 1, "dhcp6s lease of %s not usable", addr);
        return;
    }
    const int32_t remaining = int32_t(uint32_t(lease.leaseTime));
    setParameterToList(list, "X_ZN_V6LeaseTimeRemaining", ZNS_TYPE_INT32, &remaining);
    setParameterToList(list, "X_ZN_DUID", ZNS_TYPE_STRING, lease.duid);
}

// The IPv6 forms: a link-local address as it is; a global one with its
// lease, filed by how its interface identifier relates to the stored
// link-local address.
void ipv6_params(const char *addr, int scope, const uint8_t *object, zns_param_list_t *list) {
    if (scope == kIpv6ScopeLink) {
        setParameterToList(list, "X_ZN_IPV6LocalAddress", ZNS_TYPE_STRING, addr);
        return;
    }
    if (scope != kIpv6ScopeGlobal)
        return;
    dhcp6s_lease_params(addr, list);
    const char *local = object ? reinterpret_cast<const char *>(object + kHostIpv6LocalAddressAt) : "";
    if (strnlen(local, kHostIpv6LocalAddressSize) < 4)
        return;
    const uint8_t active = 1;
    switch (ipv6_compare_interface_id(addr, local)) {
    case 3:
        setParameterToList(list, "X_ZN_GUAIPAddress", ZNS_TYPE_STRING, addr);
        break;
    case 1:
    case 2:
        setParameterToList(list, "X_ZN_IPV6Address", ZNS_TYPE_STRING, addr);
        setParameterToList(list, "ipv6Active", ZNS_TYPE_BOOL, &active);
        break;
    default:
        break;
    }
}

// Gives the Host object of the MAC its customise object at the same index.
void wrapperZns_setHostCustomise(const uint8_t *mac) {
    int index;
    if (!lanhost_host_find(mac, &index))
        return;
    const zns_ia_t instance = lanhost_instance(index);
    if (znsXml_GetObjectByOID(storeHandle, kOidHostCustomise, instance, 1))
        return;
    znsXml_addObjectByOIDIAIndirect(storeHandle, kOidHostCustomise, instance, 0, 0);
    if (void *customise = znsXml_GetObjectByOID(storeHandle, kOidHostCustomise, instance, 1))
        lanhost_store_set_one(storeHandle, customise, "MACAddress", ZNS_TYPE_MAC, mac);
}

// The first temporary MAC table entry of the MAC, or null.
const uint8_t *temp_mac_entry(const uint8_t *mac) {
    const uint8_t *entry = nullptr;
    lanhost_store_scan(storeHandle, kOidTempMacTable, kTempMacTableLast, [&](int, const uint8_t *object) {
        if (lanhost_has_mac(object, kTempMacAt, mac))
            entry = object;
        return entry != nullptr;
    });
    return entry;
}

} // namespace

uint32_t lanhost_uptime() {
    struct sysinfo info {};
    sysinfo(&info);
    return uint32_t(info.uptime);
}

void lanhost_dnsmasq_lease_scan(const char *line, size_t len, DnsmasqLease *lease) {
    *lease = DnsmasqLease{};
    lanhost_copy_text(lease->source, "DHCP");
    ByteCursor cursor(line, len);
    ByteCursor field[6];
    for (size_t i = 0; i < 6 && cursor.field(' ', &field[i]); i++) {
    }
    lanhost_copy_text(lease->hostName, field[3]);
    for (char &c : lease->hostName)
        if (c == 0x1F)
            c = ' ';
    if (lease->hostName[0] == '\0' || strcmp(lease->hostName, "*") == 0)
        lanhost_copy_text(lease->hostName, "unknown");
    lease->leaseTime = lanhost_decimal(field[5]);
}

int wrapperZns_lanhost_update(const uint8_t *mac, const char *addr, int family, int scope) {
    char upper[kMacTextSize], lower[kMacTextSize];
    lanhost_mac_text(mac, true, upper);
    lanhost_mac_text(mac, false, lower);
    lhost *host = list_find_lhost(upper);
    if (!host) {
        LANHOST_LOG(1, "not find lhost");
        return 0;
    }
    if (!addr)
        addr = "";
    const auto *object = static_cast<const uint8_t *>(wrapperZns_get_lanhost_byMac(mac));
    int index = 0;
    if (!object && !(index = wrapperZns_lanhost_add_index())) {
        LANHOST_LOG(1, "not find zns host addIdx!!");
        return 0;
    }
    zns_param_list_t *list = newParameterList();
    if (!list)
        return 0;
    wrapperZns_lanhost_get_l2Interface(host->brPortName, host->Layer2Interface, host->interfacetype, &host->devtype);
    int32_t devtype = 0;
    wrapperZns_get_devtype_by_tempMactable(upper, &devtype);
    if (devtype)
        LANHOST_LOG(4, "lhost->devtype set from %d to %d", host->devtype, devtype);
    host->devtype = devtype;

    const uint32_t uptime = lanhost_uptime();
    if (!object) {
        LANHOST_LOG(4, "!!addNew zns object");
        setParameterToList(list, "MACAddress", ZNS_TYPE_MAC, mac);
        setParameterToList(list, "StartUptime", ZNS_TYPE_UINT32, &uptime);
    } else {
        LANHOST_LOG(4, "!!edit zns object");
    }
    bool write = true;
    if (family == AF_INET)
        write = ipv4_params(host, lower, addr, object, uptime, list) > 0 || !object;
    else if (family == AF_INET6)
        ipv6_params(addr, scope, object, list);

    if (write && !object)
        znsXml_addObjectByOIDIWithParaListIndirect(storeHandle, kOidHost, lanhost_instance(index), list);
    else if (write)
        znsXml_setParameterIndirectByParaList(storeHandle, znsXmlGetPtrOffset(storeHandle, object), list);
    freeParameterList(list);
    wrapperZns_setHostCustomise(mac);
    wrapperZns_lanhost_update_hostNum();
    return 0;
}

void wrapperZns_lanhost_update_hostNum() {
    uint16_t count = 0;
    lanhost_store_scan(storeHandle, kOidHost, wrapperZns_lanhost_get_maxNum(), [&](int, const uint8_t *object) {
        count += object && lanhost_field<uint8_t>(object, kHostActiveAt) != 0;
        return false;
    });
    const zns_ia_t hostsInstance = znsXml_ConstructIAValue(__FILE__, __func__, __LINE__, 1, "1");
    const auto *hosts = static_cast<const uint8_t *>(znsXml_GetObjectByOID(storeHandle, kOidHosts, hostsInstance, 1));
    if (hosts && lanhost_field<uint16_t>(hosts, kHostsNumberAt) != count)
        znsXml_setOneParameterByOIDIndirect(storeHandle, kOidHosts, hostsInstance, "HostNumberOfEntries",
                                            ZNS_TYPE_UINT16, &count);
}

void wrapperZns_get_devtype_by_tempMactable(const char *macText, int32_t *devtype) {
    uint8_t mac[6];
    macStr_to_bytes(mac, macText);
    if (const uint8_t *entry = temp_mac_entry(mac)) {
        *devtype = lanhost_field<int32_t>(entry, kTempDeviceTypeAt);
        return;
    }
    LANHOST_LOG(3, "find no temp dev \n");
}

int32_t getMacTableDeviceType(const uint8_t *mac) {
    const uint8_t *entry = temp_mac_entry(mac);
    return entry ? lanhost_field<int32_t>(entry, kTempDeviceTypeAt) : 0;
}
