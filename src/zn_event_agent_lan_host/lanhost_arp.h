// ARP liveness probing: one unicast request to a host's IPv4 address and
// kProbeSeconds for the reply, which arrives on the tracker's ARP socket.
#pragma once

#include <event2/event.h>

#include <cstddef>
#include <cstdint>

#include "byte_cursor.h"
#include "lanhost_table.h"

constexpr size_t kArpRequestSize = 64;

// The request to hostIp at hostMac, from the bridge's own addresses.
void lanhost_arp_request_build(uint8_t (&frame)[kArpRequestSize], const uint8_t *hostMac, const uint8_t *ownMac,
                               const uint8_t *ownIp, const uint8_t *hostIp);

int zn_event_lanhost_arpping(lhost *host);
// A record holds at most one probe timer: adding one replaces the one before.
int wrapper_libevent_lhost_addArptimer(lhost *host, int seconds);
void zn_event_lanhost_arppingtimer_cb(evutil_socket_t fd, short what, void *arg);

// What the reader uses of a frame from the ARP socket.
struct ArpReply {
    uint8_t dstMac[6];
    uint8_t srcMac[6];
    uint8_t senderIp[4];
    uint8_t targetIp[4];
};

// kOk, kTooShort (fewer than 42 bytes) or kWrongType (operation not a reply).
Parse lanhost_arp_reply_parse(const uint8_t *frame, size_t len, ArpReply *reply);

void zn_event_lanhost_arpreply_read_cb(evutil_socket_t fd, short what, void *arg);
// What the reader does with one frame of len bytes.
void lanhost_arp_reply_handle(const uint8_t *frame, size_t len);
// Takes over senderIp as the host's address when its port serves a bridged
// WAN connection; returns 0.
int wrapperZns_lanhost_bridge_handle(lhost *host, const char *senderIp);
