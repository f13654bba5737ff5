// Hosts going offline: their Host objects, the table of offline hosts, and
// the look-ups over Host objects that are no longer in use.
#include <ctime>

#include "agent_log.h"
#include "lanhost.h"
#include "lanhost_store.h"

namespace {

constexpr time_t kWallClockSet = 1500000000; // below this the clock was never set

struct CopiedParam {
    const char *name;
    uint32_t type;
    size_t hostAt;
};

// What an offline entry takes from the Host object, in this order.
constexpr CopiedParam kOfflineCopy[] = {
    {"HostName", ZNS_TYPE_STRING, kHostHostNameAt},
    {"AddressSource", ZNS_TYPE_STRING, kHostAddressSourceAt},
    {"IPAddress", ZNS_TYPE_STRING, kHostIpAddressAt},
    {"MACAddress", ZNS_TYPE_MAC, kHostMacAt},
    {"Layer2Interface", ZNS_TYPE_STRING, kHostLayer2InterfaceAt},
    {"InterfaceType", ZNS_TYPE_STRING, kHostInterfaceTypeAt},
    {"CustomiseName", ZNS_TYPE_STRING, kHostCustomiseNameAt},
    {"DeviceType", ZNS_TYPE_UINT32, kHostDeviceTypeAt},
    {"UTCDowntime", ZNS_TYPE_UINT32, kHostUtcDowntimeAt},
};
// Taken as well while the host is offline on IPv6.
constexpr CopiedParam kOfflineIpv6Copy[] = {
    {"X_ZN_IPV6Address", ZNS_TYPE_STRING, kHostIpv6AddressAt},
    {"X_ZN_IPV6LocalAddress", ZNS_TYPE_STRING, kHostIpv6LocalAddressAt},
    {"X_ZN_GUAIPAddress", ZNS_TYPE_STRING, kHostGuaAddressAt},
};

// The entry that has been offline longest. An entry at 0 never stays the
// choice once another follows it; of equal times the earlier index wins.
int offline_oldest(zns_xml_handle_t *handle) {
    int chosen = 0;
    uint32_t minimum = 0;
    lanhost_store_scan(handle, kOidOfflineHost, wrapperZns_lanhost_get_maxNum(), [&](int i, const uint8_t *object) {
        if (!object)
            return false;
        const uint32_t downtime = lanhost_field<uint32_t>(object, kOfflineUtcDowntimeAt);
        if (!chosen || minimum == 0 || downtime < minimum) {
            chosen = i;
            minimum = downtime;
        }
        return false;
    });
    return chosen;
}

// The OfflineHost object to fill: a new one at the lowest free index, or in
// a full table the one that has been offline longest; null when neither.
void *offline_slot(zns_xml_handle_t *handle) {
    int index = lanhost_store_scan(handle, kOidOfflineHost, wrapperZns_lanhost_get_maxNum(),
                                   [](int, const uint8_t *object) { return object == nullptr; });
    if (index) {
        znsXml_addObjectByOIDIAIndirect(handle, kOidOfflineHost, lanhost_instance(index), 0, 0);
    } else if (!(index = offline_oldest(handle))) {
        ZN_LOG_AS(wrapperOfflineLanHost_add, 4, "Error!!! IA iValue %d is not in 1~255!!!\n", 0);
        return nullptr;
    }
    void *slot = znsXml_GetObjectByOID(handle, kOidOfflineHost, lanhost_instance(index), 1);
    if (!slot)
        ZN_LOG_AS(wrapperOfflineLanHost_add, 1,
                  "get OID_InternetGatewayDevice_LANDevice_i_Hosts_OfflineHost_i %d fail \n", index);
    return slot;
}

void set_ipv6_inactive(const uint8_t *object) {
    const uint8_t inactive = 0;
    lanhost_store_set_one(storeHandle, object, "ipv6Active", ZNS_TYPE_BOOL, &inactive);
}

} // namespace

void wrapperZns_offlineLanHost_delete(const uint8_t *mac) {
    const int index =
        lanhost_store_scan(storeHandle, kOidOfflineHost, wrapperZns_lanhost_get_maxNum(),
                           [&](int, const uint8_t *object) { return lanhost_has_mac(object, kOfflineMacAt, mac); });
    if (index)
        znsXml_delObjectByOIDIAIndirect(storeHandle, kOidOfflineHost, lanhost_instance(index));
}

void wrapperOfflineLanHost_add(zns_xml_handle_t *handle, const uint8_t *mac, const void *hostObject) {
    if (lanhost_store_scan(handle, kOidOfflineHost, wrapperZns_lanhost_get_maxNum(),
                           [&](int, const uint8_t *object) { return lanhost_has_mac(object, kOfflineMacAt, mac); }))
        return;
    void *slot = offline_slot(handle);
    zns_param_list_t *list = slot ? newParameterList() : nullptr;
    if (!list)
        return;
    const auto *host = static_cast<const uint8_t *>(hostObject);
    for (const CopiedParam &p : kOfflineCopy)
        setParameterToList(list, p.name, p.type, host + p.hostAt);
    if (lanhost_field<uint8_t>(host, kHostIpv6ActiveAt) == 0)
        for (const CopiedParam &p : kOfflineIpv6Copy)
            setParameterToList(list, p.name, p.type, host + p.hostAt);
    znsXml_setParameterIndirectByParaList(handle, znsXmlGetPtrOffset(handle, slot), list);
    freeParameterList(list);
}

int wrapperZns_lanhost_set_offline(lhost *host) {
    const auto *object = static_cast<const uint8_t *>(wrapperZns_get_lanhost_byMac(host->mac));
    const bool online = object && lanhost_field<uint8_t>(object, kHostActiveAt) == 1;
    zns_param_list_t *list = online ? newParameterList() : nullptr;
    if (list) {
        const uint8_t inactive = 0;
        setParameterToList(list, "Active", ZNS_TYPE_BOOL, &inactive);
        LANHOST_LOG(4, "set value: Active=%d", inactive);
        const time_t now = time(nullptr);
        const uint32_t downtime = now >= kWallClockSet ? uint32_t(now) : lanhost_uptime();
        setParameterToList(list, "UTCDowntime", ZNS_TYPE_UINT32, &downtime);
        LANHOST_LOG(4, "set value: UTCDowntime=%d", int(downtime));
        znsXml_setParameterIndirectByParaList(storeHandle, znsXmlGetPtrOffset(storeHandle, object), list);
        freeParameterList(list);
        wrapperOfflineLanHost_add(storeHandle, host->mac, object);
    }
    wrapperZns_lanhost_update_hostNum();
    return 0;
}

int wrapperZns_lanhostIPv6_set_offline(lhost *host) {
    const auto *object = static_cast<const uint8_t *>(wrapperZns_get_lanhost_byMac(host->mac));
    if (object && lanhost_field<uint8_t>(object, kHostIpv6ActiveAt) == 1) {
        LANHOST_LOG(4, "set value: ipv6Active=%d", 0);
        set_ipv6_inactive(object);
        wrapperOfflineLanHost_add(storeHandle, host->mac, object);
    }
    return 0;
}

int wrapperZns_lanhostIPv6_delete(const uint8_t *mac) {
    if (const auto *object = static_cast<const uint8_t *>(wrapperZns_get_lanhost_byMac(mac))) {
        LANHOST_LOG(4, "set value: ipv6Active=%d", 0);
        set_ipv6_inactive(object);
    }
    return 0;
}

int wrapperZns_lanhost_get_longestOffline() {
    int longest = 0;
    uint32_t minimum = 0xFFFFFFFF;
    lanhost_store_scan(storeHandle, kOidHost, wrapperZns_lanhost_get_maxNum(), [&](int i, const uint8_t *object) {
        if (!object || lanhost_field<uint8_t>(object, kHostActiveAt) != 0)
            return false;
        char macText[kMacTextSize];
        lanhost_mac_text(object + kHostMacAt, true, macText);
        const lhost *host = list_find_lhost(macText);
        const uint32_t downtime = lanhost_field<uint32_t>(object, kHostUtcDowntimeAt);
        if ((!host || host->active == 0) && downtime < minimum) {
            longest = i;
            minimum = downtime;
        }
        return false;
    });
    if (longest)
        LANHOST_LOG(3, "get longest offline idx=%d, minTime=%X", longest, minimum);
    return longest;
}

int wrapperZns_unusedLanhost_delete(const uint8_t *mac) {
    lanhost_store_scan(storeHandle, kOidHost, wrapperZns_lanhost_get_maxNum(), [&](int i, const uint8_t *object) {
        if (!lanhost_has_mac(object, kHostMacAt, mac) || lanhost_field<uint8_t>(object, kHostActiveAt) != 0 ||
            object[kHostIpAddressAt] != '\0')
            return false;
        znsXml_delObjectByOIDIAIndirect(storeHandle, kOidHost, lanhost_instance(i));
        znsXml_delObjectByOIDIAIndirect(storeHandle, kOidHostCustomise, lanhost_instance(i));
        return true;
    });
    return 0;
}
