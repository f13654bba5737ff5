// Classic BPF programs of the tracker's two packet sockets on "br0".
#pragma once

#include <linux/filter.h>
#include <net/ethernet.h>
#include <netinet/icmp6.h>
#include <netinet/ip6.h>

#include <cstddef>

namespace lanhost_bpf {

constexpr unsigned kAccept = 0x40000; // bytes of a frame kept
constexpr unsigned kEtherTypeAt = offsetof(ether_header, ether_type);
constexpr unsigned kDestFirstByteAt = offsetof(ether_header, ether_dhost);
constexpr unsigned kIp6NextHeaderAt = ETHER_HDR_LEN + offsetof(ip6_hdr, ip6_nxt);
constexpr unsigned kIcmp6TypeAt = ETHER_HDR_LEN + sizeof(ip6_hdr) + offsetof(icmp6_hdr, icmp6_type);

// ARP frames addressed to one station: broadcast requests never wake the tracker.
constexpr sock_filter kArp[] = {
    {BPF_LD | BPF_H | BPF_ABS, 0, 0, kEtherTypeAt},     // A = EtherType
    {BPF_JMP | BPF_JEQ | BPF_K, 0, 3, ETHERTYPE_ARP},   // not ARP: drop
    {BPF_LD | BPF_B | BPF_ABS, 0, 0, kDestFirstByteAt}, // A = first byte of the destination MAC
    {BPF_JMP | BPF_JSET | BPF_K, 1, 0, 1},              // group bit set: drop
    {BPF_RET | BPF_K, 0, 0, kAccept},                   // accept
    {BPF_RET | BPF_K, 0, 0, 0},                         // drop
};

// IPv6 neighbor advertisements (ICMPv6 right behind the fixed header).
constexpr sock_filter kNeighborAdvert[] = {
    {BPF_LD | BPF_H | BPF_ABS, 0, 0, kEtherTypeAt},        // A = EtherType
    {BPF_JMP | BPF_JEQ | BPF_K, 0, 5, ETHERTYPE_IPV6},     // not IPv6: drop
    {BPF_LD | BPF_B | BPF_ABS, 0, 0, kIp6NextHeaderAt},    // A = next header
    {BPF_JMP | BPF_JEQ | BPF_K, 0, 3, IPPROTO_ICMPV6},     // not ICMPv6: drop
    {BPF_LD | BPF_B | BPF_ABS, 0, 0, kIcmp6TypeAt},        // A = ICMPv6 type
    {BPF_JMP | BPF_JEQ | BPF_K, 0, 1, ND_NEIGHBOR_ADVERT}, // not an advertisement: drop
    {BPF_RET | BPF_K, 0, 0, kAccept},                      // accept
    {BPF_RET | BPF_K, 0, 0, 0},                            // drop
};

} // namespace lanhost_bpf
