// What a host's bridge port means: its store path, its kind, and whether a
// bridged WAN connection serves it.
#include "lanhost_port.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "agent_log.h"
#include "lanhost.h"
#include "lanhost_records.h"

namespace {

struct PortKind {
    const char *prefix;
    const char *numberAfter; // the port number n follows this text
    const char *type;        // interfacetype
    const char *pathBase;    // the instance number follows
    int offset;              // added to n for the instance number
    int devtype;
};

constexpr const char kEthernetPath[] = "InternetGatewayDevice.LANDevice.1.LANEthernetInterfaceConfig.";
constexpr const char kWlanPath[] = "InternetGatewayDevice.LANDevice.1.WLANConfiguration.";

// First match wins: "rax" stands before "ra".
constexpr PortKind kPortKinds[] = {
    {"eth", "eth", "Ethernet", kEthernetPath, 1, 3}, {"lan", "lan", "Ethernet", kEthernetPath, 1, 3},
    {"rax", "rax", "802.11", kWlanPath, 1, 1},       {"ra", "ra", "802.11", kWlanPath, 9, 1},
    {"wlan2", "wlan2.", "802.11", kWlanPath, 1, 1},  {"wlan0", "wlan0.", "802.11", kWlanPath, 9, 1},
};

// The number behind lead in name as "%d" reads it; 0 when there is none.
// Wide enough for the digits of any interface name, so the offset added
// to it cannot overflow.
long long port_number(const char *name, const char *lead) {
    const size_t n = strlen(lead);
    return strncmp(name, lead, n) == 0 ? strtoll(name + n, nullptr, 10) : 0;
}

constexpr int kWanConnectionDevices = 16;
constexpr int kWanConnections = 8;

struct WanConnection {
    const char *name;
    size_t typeAt;
    size_t bindingAt;
};

constexpr WanConnection kWanConnectionKinds[] = {
    {"WANIPConnection", kWanIpTypeAt, kWanIpBindingAt},
    {"WANPPPConnection", kWanPppTypeAt, kWanPppBindingAt},
};

} // namespace

void wrapperZns_lanhost_get_l2Interface(const char *brPortName, char *layer2Interface, char *interfacetype,
                                        int32_t *devtype) {
    for (const PortKind &k : kPortKinds) {
        if (strncmp(brPortName, k.prefix, strlen(k.prefix)) != 0)
            continue;
        snprintf(layer2Interface, sizeof(lhost::Layer2Interface), "%s%lld", k.pathBase,
                 port_number(brPortName, k.numberAfter) + k.offset);
        lanhost_copy_text(interfacetype, sizeof(lhost::interfacetype), k.type);
        *devtype = k.devtype;
        return;
    }
}

int wrapperZns_lanhost_l2Interface_is_bridge(lhost *host) {
    if (!host) {
        LANHOST_LOG(1, "input lhost is not valid!!");
        return 0;
    }
    if (host->Layer2Interface[0] == '\0')
        wrapperZns_lanhost_get_l2Interface(host->brPortName, host->Layer2Interface, host->interfacetype,
                                           &host->devtype);
    LANHOST_LOG(1, "lhost: brPortName=%s, Layer2Interface=%s, interfacetype=%s, devtype=%d", host->brPortName,
                host->Layer2Interface, host->interfacetype, host->devtype);
    char path[160];
    const int wan = 1;
    snprintf(path, sizeof path, "InternetGatewayDevice.WANDevice.%d", wan);
    if (!znsXml_GetObjectByName(storeHandle, path, 1))
        return 0;
    for (int c = 1; c <= kWanConnectionDevices; c++) {
        snprintf(path, sizeof path, "InternetGatewayDevice.WANDevice.%d.WANConnectionDevice.%d", wan, c);
        if (!znsXml_GetObjectByName(storeHandle, path, 1))
            continue;
        for (const WanConnection &kind : kWanConnectionKinds) {
            for (int i = 1; i <= kWanConnections; i++) {
                snprintf(path, sizeof path, "InternetGatewayDevice.WANDevice.%d.WANConnectionDevice.%d.%s.%d", wan, c,
                         kind.name, i);
                const auto *obj = static_cast<const char *>(znsXml_GetObjectByName(storeHandle, path, 1));
                if (obj && strstr(obj + kind.typeAt, "Bridged") &&
                    strstr(obj + kind.bindingAt, host->Layer2Interface)) {
                    LANHOST_LOG(3, "find %s in ip_interface", path);
                    return 1;
                }
            }
        }
    }
    return 0;
}
