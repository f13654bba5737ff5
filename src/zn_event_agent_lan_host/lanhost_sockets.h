// The tracker's eight sockets, each bound where its peer expects it. Each
// initialiser returns 0 with the descriptor in *fd, or -1 with nothing
// stored. The packet and UDP sockets are closed on a failure; a netlink or
// unix socket whose bind fails stays open, as do the sockets made before a
// failure: the tracker ends there, and the process keeps its descriptors.
#pragma once

#include <linux/netlink.h>
#include <sys/un.h>

int zn_event_neighbor_netlink_sock_init(int *fd, sockaddr_nl *addr);
int zn_event_httpAgent_netlink_sock_init(int *fd, sockaddr_nl *addr);
int zn_event_dhcp_unix_sock_init(int *fd, sockaddr_un *addr);
int zn_event_arpPing_raw_sock_init(int *fd);
int zn_event_bridge_dhcp_sock_init(int *fd);
int zn_event_icmpv6_raw_sock_init(int *fd);
int zn_event_dhcp6s_address_sock_init(int *fd, sockaddr_un *addr);
int zn_event_radvd_address_sock_init(int *fd, sockaddr_un *addr);
