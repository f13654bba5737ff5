// ICMPv6 liveness of hosts: neighbor solicitations to a host's link-local
// address and the advertisements that answer them (RFC 4861), read on the
// tracker's packet socket or by a stand-alone listener.
#pragma once

#include <event2/event.h>
#include <netinet/in.h>

#include <cstddef>
#include <cstdint>

#include "byte_cursor.h"
#include "lanhost_table.h"

constexpr size_t kNsSize = 32; // solicitation with its source link-layer option

// What a neighbor advertisement says. type is 0 when the message ends before it.
struct NeighborAdvert {
    uint8_t type;
    uint8_t target[16];
    uint8_t mac[6];
};

// An ICMPv6 message as a raw ICMPv6 socket gives it: kOk, kWrongType (no
// type, or not an advertisement) or kMissing (the first option is not a whole
// target link-layer address).
Parse lanhost_na_message_parse(const uint8_t *msg, size_t len, NeighborAdvert *na);
// A whole Ethernet frame from the packet socket, the message behind the
// Ethernet and IPv6 headers: the same, and kTooShort below 30 bytes.
Parse lanhost_na_frame_parse(const uint8_t *frame, size_t len, NeighborAdvert *na);

// A solicitation for target, addressed to target itself on the bridge.
struct NeighborSolicit {
    uint8_t frame[kNsSize];
    sockaddr_in6 dest;
};
// False when the bridge has no index or target is not an IPv6 address.
bool lanhost_ns_prepare(const char *target, NeighborSolicit *ns);
// SO_BINDTODEVICE to the bridge, with the 40-byte name buffer of the option.
int lanhost_bind_to_bridge(int s);
// The gateway's own LAN-side IPv6 address from the store, without a prefix
// length: 1 and *own, 0 when the value is no usable address, -1 when the
// parameter is absent.
int lanhost_own_ipv6_address(in6_addr *own);

// Required by the design, not called yet: the probe, with its timer below.
int zn_event_lanhost_icmp6_ping(lhost *host);
int wrapper_libevent_lhost_addIcmp6timer(lhost *host, int seconds);
void zn_event_lanhost_icmp6timer_cb(evutil_socket_t fd, short what, void *arg);

void zn_event_lanhost_ipv6MulticastSockRead_cb(evutil_socket_t fd, short what, void *arg);
// What the reader does with one frame of len bytes.
void lanhost_na_handle(const uint8_t *frame, size_t len);

// Required by the design, not called yet: a listener with a loop of its own.
// It touches the host list, so it may only run where the tracker's loop doesn't.
void *ipv6MulticastEventHandler(void *arg);
// Files an address learnt from an advertisement under the MAC's record, as a
// changed neighbor entry would be.
void ipv6MulticastEvent_update(const char *macText, const char *addrText, const uint8_t *addr, const uint8_t *mac);
