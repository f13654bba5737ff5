// The host table: one record per MAC learnt on the bridge, and the pending
// DHCP requests. Tracker thread only.
#pragma once

#include <event2/event.h>

#include <cstdint>

#include "byte_cursor.h"
#include "lanhost_addr.h"

constexpr int kLanhostMaxNum = 255; // Host and OfflineHost indexes 1..255

// A liveness probe's wait for its answer, ARP and ICMPv6 alike.
constexpr int kProbeSeconds = 3;
// arpState and icmp6State while a probe waits for its answer.
constexpr int32_t kArpProbing = 1, kIcmp6Probing = 2;

struct lhost {
    lhost *next;
    int32_t active;
    uint8_t mac[6];
    char macAddr[kMacTextSize];
    char brName[32];
    char brPortName[32];
    char ipAddr[kIpv4TextSize];
    char ipv6Addr[kIpv6TextRoom];
    char ipv6LocalAddr[kIpv6TextRoom];
    char ipAddrSource[32];
    int64_t dhcpLeasetime;
    int32_t devtype;
    char Vendor[32];
    char HostName[32];
    char Layer2Interface[128];
    char interfacetype[20];
    event *arpTimer;
    event *icmp6Timer;
    int32_t arpState;
    int32_t icmp6State;
};

struct dhcpRequestEntry {
    dhcpRequestEntry *next;
    char macAddr[kMacTextSize];
    char requestedIp[kIpv4TextSize];
    char hostName[128];
    char hostNameAlt[128];
};

// The heads of both lists; they change only through the list_ operations.
extern lhost *hostListHead;
extern dhcpRequestEntry *dhcpRequestListHead;

lhost *list_init_add_lhost();
lhost *list_find_lhost(const char *macText);
void list_del_lhost(lhost *host);

// A new zeroed entry for the lower-case MAC text at the head of the list,
// or null when it can't be allocated.
dhcpRequestEntry *list_add_dhcpRequestEntry(const char *macText);
dhcpRequestEntry *list_find_dhcpRequestEntry(const char *macText);
// Unlinks and frees an entry of the list.
void list_del_dhcpRequestEntry(dhcpRequestEntry *entry);
// Frees every entry: the list is empty.
void list_reset_dhcpRequestEntry();

int wrapper_libevent_lhost_delArptimer(lhost *host);
int wrapper_libevent_lhost_delIcmp6timer(lhost *host);
