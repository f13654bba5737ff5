// ARP liveness probing: one unicast request to a host's IPv4 address and a
// few seconds for the reply, which arrives on the tracker's ARP socket.
#pragma once

#include <cstddef>
#include <cstdint>

#include "lanhost_table.h"

constexpr size_t kArpRequestSize = 64;
constexpr size_t kArpReplyMinSize = 42;
constexpr size_t kArpReadSize = 256;
constexpr int kArpProbeSeconds = 3;

// The request to hostIp at hostMac, from the bridge's own addresses.
void lanhost_arp_request_build(uint8_t (&frame)[kArpRequestSize], const uint8_t *hostMac, const uint8_t *ownMac,
                               const uint8_t *ownIp, const uint8_t *hostIp);

// What the reader uses of a frame from the ARP socket.
struct ArpReply {
    uint8_t dstMac[6];
    uint8_t srcMac[6];
    uint8_t senderIp[4];
    uint8_t targetIp[4];
};

enum ArpCheck {
    kArpOk,
    kArpTooShort, // fewer than 42 bytes
    kArpNotReply, // ARP operation is not 2
};

ArpCheck lanhost_arp_reply_parse(const uint8_t *frame, size_t len, ArpReply *reply);
// What the reader does with one frame of len bytes.
void zn_event_lanhost_arpreply_handle(const uint8_t *frame, size_t len);
// Takes over senderIp as the host's address when its port serves a bridged
// WAN connection; returns 0.
int wrapperZns_lanhost_bridge_handle(lhost *host, const char *senderIp);
