// The host table: one record per MAC learnt on the bridge, the pending DHCP
// requests, and the helpers that work on one host. Tracker thread only.
#pragma once

#include <event2/event.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "znsutils.h"

constexpr int kLanhostMaxNum = 255;           // Host and OfflineHost indexes 1..255
constexpr uint32_t kOidHosts = 155, kOidHost = 156, kOidOfflineHost = 159, kOidTempMacTable = 161,
                   kOidHostCustomise = 167;

struct lhost {
    lhost *next;
    int32_t active;
    uint8_t mac[6];
    char macAddr[18];
    char brName[32];
    char brPortName[32];
    char ipAddr[16];
    char ipv6Addr[44];
    char ipv6LocalAddr[44];
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
    char macAddr[18];
    char requestedIp[16];
    char hostName[128];
    char hostNameAlt[128];
};

extern lhost *hostListHead;
extern dhcpRequestEntry *dhcpRequestListHead;

// The one way text enters a fixed-width field: at most n - 1 bytes of src
// (stopping at its NUL or at len), always NUL-terminated. Returns whether
// all of src fitted.
bool copy_text(char *dst, size_t n, const char *src, size_t len = SIZE_MAX);
template <size_t N> bool copy_text(char (&dst)[N], const char *src, size_t len = SIZE_MAX) {
    return copy_text(dst, N, src, len);
}

lhost *list_init_add_lhost();
lhost *list_find_lhost(const char *macText);
void list_del_lhost(lhost *host);
dhcpRequestEntry *list_find_dhcpRequestEntry(const char *macText);
// Unlinks and frees an entry of the list.
void list_del_dhcpRequestEntry(dhcpRequestEntry *entry);

int wrapperZns_lanhost_get_maxNum();
void *wrapperZns_get_lanhost_byMac(const uint8_t *mac);
void wrapperZns_lanhost_get_l2Interface(const char *brPortName, char *layer2Interface, char *interfacetype,
                                        int32_t *devtype);
int wrapperZns_lanhost_l2Interface_is_bridge(lhost *host);
int wrapper_libevent_lhost_delArptimer(lhost *host);
int wrapper_libevent_lhost_delIcmp6timer(lhost *host);

// ARP liveness probe of one host. A record holds at most one probe timer:
// adding one replaces the one before.
int zn_event_lanhost_arpping(lhost *host);
int wrapper_libevent_lhost_addArptimer(lhost *host, int seconds);
void zn_event_lanhost_arppingtimer_cb(evutil_socket_t fd, short what, void *arg);

void macStr_to_bytes(uint8_t *mac, const char *text);
uint32_t lhost_ipv6_addr_type(const uint8_t *addr);
// Bits of that classification word that callers test.
constexpr uint32_t kIpv6Unicast = 0x0001, kIpv6LinkLocal = 0x0020, kIpv6ScopeGlobal = 0xE0000;
int ipv6_compare_interface_id(const char *a, const char *b);
int ipv6_join_prefix_interface_id(const char *a, const char *b, char *out);
int ipv4_str_is_valid(const char *text);
// 17 characters: pairs of hexadecimal digits joined by ':'.
bool mac_str_is_valid(const char *text);
int ipv4_same_subnet(const char *a, const char *b, const char *mask);
void dump_hex(const void *buf, size_t len);

// Publication in the store.
int wrapperZns_lanhost_update(const uint8_t *mac, const char *addr, int family, int scope);
int wrapperZns_lanhost_set_offline(lhost *host);
int wrapperZns_lanhostIPv6_set_offline(lhost *host);
int wrapperZns_lanhostIPv6_delete(const uint8_t *mac);
void wrapperZns_lanhost_update_hostNum();
void wrapperOfflineLanHost_add(zns_xml_handle_t *handle, const uint8_t *mac, const void *hostObject);
void wrapperZns_get_devtype_by_tempMactable(const char *macText, int32_t *devtype);
int32_t getMacTableDeviceType(const uint8_t *mac);
int wrapperZns_lanhost_get_longestOffline();
int wrapperZns_unusedLanhost_delete(const uint8_t *mac);

// ICMPv6 liveness probe of one host, and the dhcp6s and radvd reports.
int zn_event_lanhost_icmp6_ping(lhost *host);
int wrapper_libevent_lhost_addIcmp6timer(lhost *host, int seconds);
void zn_event_lanhost_icmp6timer_cb(evutil_socket_t fd, short what, void *arg);
// Stand-alone advertisement listener with a loop of its own; it touches the
// host list, so it may only run where the tracker's loop doesn't.
void *ipv6MulticastEventHandler(void *arg);
int prefixEventDispatch(const char *text);
int sendNS(const char *address);
