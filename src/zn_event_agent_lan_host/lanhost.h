// The LAN host tracker: one thread around one libevent base. Everything here
// is touched by the tracker's thread alone.
#pragma once

#include <event2/event.h>
#include <linux/netlink.h>
#include <sys/un.h>

#include <cstdint>

#include "znsutils.h"

constexpr const char *kLanBridge = "br0";
constexpr const char *kLanhostDebugFile = "/tmp/zn_event_agent_lanhost_debug";
constexpr const char *kMacAddrBaseFile = "/etc/macAddrBase";
constexpr const char *kLeaseTimeSocket = "/tmp/leasetime_unix";
constexpr const char *kDhcp6sAddressSocket = "/tmp/dhcp6sAddress_unix";
constexpr const char *kRadvdPrefixSocket = "/tmp/radvdprefix_unix";
constexpr const char *kHostsPath = "InternetGatewayDevice.LANDevice.1.Hosts";
constexpr int kHttpAgentProtocol = 31;
constexpr uint32_t kNeighborPortIdTag = 0x640000;
constexpr size_t kMacTextSize = 18;

extern zns_xml_handle_t *storeHandle;
extern event_base *lanhostEventBase;
extern char gatewayBaseMac[kMacTextSize];

int getGatewayBaseMacaddr();

// Socket initialisers: 0 and the descriptor in *fd, or -1 and nothing stored.
int zn_event_neighbor_netlink_sock_init(int *fd, sockaddr_nl *addr);
int zn_event_httpAgent_netlink_sock_init(int *fd, sockaddr_nl *addr);
int zn_event_dhcp_unix_sock_init(int *fd, sockaddr_un *addr);
int zn_event_arpPing_raw_sock_init(int *fd);
int zn_event_bridge_dhcp_sock_init(int *fd);
int zn_event_icmpv6_raw_sock_init(int *fd);
int zn_event_dhcp6s_address_sock_init(int *fd, sockaddr_un *addr);
int zn_event_radvd_address_sock_init(int *fd, sockaddr_un *addr);

// Read callbacks of the eight sockets.
void zn_event_lanhost_neighbor_read_cb(evutil_socket_t fd, short what, void *arg);
void zn_event_lanhost_httpSockRead_cb(evutil_socket_t fd, short what, void *arg);
void zn_event_lanhost_dhcpSockRead_cb(evutil_socket_t fd, short what, void *arg);
void zn_event_lanhost_arpreply_read_cb(evutil_socket_t fd, short what, void *arg);
void zn_event_lanhost_bridge_dhcpSockRead_cb(evutil_socket_t fd, short what, void *arg);
void zn_event_lanhost_ipv6MulticastSockRead_cb(evutil_socket_t fd, short what, void *arg);
void zn_event_lanhost_dhcp6sAddrSockRead_cb(evutil_socket_t fd, short what, void *arg);
void zn_event_lanhost_radvdSockRead_cb(evutil_socket_t fd, short what, void *arg);

// Periodic timers.
void zn_event_lanhost_macfilter_timer_cb(evutil_socket_t fd, short what, void *arg);
void zn_event_lanhost_macAgeingDetect_timer_cb(evutil_socket_t fd, short what, void *arg);
void zn_event_lanhost_save_flash_timer_cb(evutil_socket_t fd, short what, void *arg);
void zn_event_lanhost_log_level_cb(evutil_socket_t fd, short what, void *arg);
