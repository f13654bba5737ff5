// IPv6 neighbour discovery of the tracker: the advertisements it reads, the
// solicitations it sends, and the address reports of dhcp6s and radvd.
#pragma once

#include <netinet/in.h>

#include <cstddef>
#include <cstdint>

constexpr size_t kNsSize = 32;         // solicitation with its source link-layer option
constexpr size_t kDaemonDatagram = 256; // dhcp6s and radvd reports

// What a neighbour advertisement says. type is 0 when the message ends before it.
struct NeighbourAdvert {
    uint8_t type;
    uint8_t target[16];
    uint8_t mac[6];
};

enum NaCheck {
    kNaOk,
    kNaTooShort,           // frame of fewer than 30 bytes
    kNaNotAdvert,          // ICMPv6 type is not 136
    kNaNoTargetLinkLayer,  // first option is not a whole target link-layer address
};

// A whole Ethernet frame from the packet socket: ICMPv6 starts at byte 54.
NaCheck lanhost_na_frame_parse(const uint8_t *frame, size_t len, NeighbourAdvert *na);
// An ICMPv6 message as a raw ICMPv6 socket gives it.
NaCheck lanhost_na_message_parse(const uint8_t *msg, size_t len, NeighbourAdvert *na);

// A solicitation for target, addressed to target itself on the bridge.
struct NeighbourSolicit {
    uint8_t frame[kNsSize];
    sockaddr_in6 dest;
};

// SO_BINDTODEVICE to the bridge, with the 40-byte name buffer of the option.
int lanhost_bind_to_bridge(int s);

// False when the bridge has no index or target is not an IPv6 address.
bool lanhost_ns_prepare(const char *target, NeighbourSolicit *ns);

// The gateway's own LAN-side IPv6 address from the store, without a prefix
// length: 1 and *own, 0 when the value is no usable address, -1 when the
// parameter is absent.
int lanhost_own_ipv6_address(in6_addr *own);

// A dhcp6s report, "DUID ADDRESS LEASETIME" blank-separated, as a line of
// its lease file reads.
struct dhcp6sLease {
    char duid[64];
    char address[44];
    int64_t leaseTime;
};
// false, and all empty, when a field is longer than its room; missing fields
// stay empty, 0.
bool lanhost_dhcp6s_lease_parse(const char *text, size_t len, dhcp6sLease *lease);

enum RadvdCheck {
    kRadvdAddress,
    kRadvdNoAddress, // no link-local text with "fe80::", or too little to join
    kRadvdTooLong,   // a field, or the joined address, longer than 43 characters
};

// The address that a radvd report "PREFIX LINKLOCAL" names: the prefix's text
// up to the first colon of its "::" joined with what follows "fe80::" in the
// link-local text. out is empty unless the result is kRadvdAddress.
RadvdCheck lanhost_radvd_address(const char *text, size_t len, char (&out)[44]);

// Files an address learnt from an advertisement under the MAC's record, as a
// changed neighbour entry would be.
void ipv6MulticastEvent_update(const char *macText, const char *addrText, const uint8_t *addr, const uint8_t *mac);
