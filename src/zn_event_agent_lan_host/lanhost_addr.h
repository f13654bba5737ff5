// Address helpers of the host table: MAC text and bytes, IPv4 text, IPv6
// classification and interface identifiers, and packet dumps.
#pragma once

#include <cstddef>
#include <cstdint>

constexpr size_t kMacTextSize = 18;  // "AA:BB:CC:DD:EE:FF" and its terminator
constexpr size_t kIpv4TextSize = 16; // "255.255.255.255" and its terminator
constexpr size_t kIpv6TextRoom = 44; // IPv6 text fields of the records: 43 characters

// MAC text of 6 bytes, "%02X:..." in upper case or "%02x:..." in lower case.
void lanhost_mac_text(const uint8_t *mac, bool upper, char (&out)[kMacTextSize]);
// The digit pairs at positions 0, 3, ..., 15; any other character than a
// hexadecimal digit counts as 0.
void macStr_to_bytes(uint8_t *mac, const char *text);
// 17 characters: pairs of hexadecimal digits joined by ':'.
bool lanhost_mac_str_is_valid(const char *text);

// "%d.%d.%d.%d" of 4 bytes in network order.
void lanhost_ipv4_text(const uint8_t *addr, char (&out)[kIpv4TextSize]);
int ipv4_str_is_valid(const char *text);
// Required by the design, not called yet.
int ipv4_same_subnet(const char *a, const char *b, const char *mask);

// The kernel's classification of an IPv6 address (RFC 4291 address
// types): flags in the low 16 bits, the scope above.
uint32_t lhost_ipv6_addr_type(const uint8_t *addr);
// Scopes as the kernel numbers them; wrapperZns_lanhost_update takes the
// last two as the form of an IPv6 synchronisation.
constexpr uint32_t kIpv6ScopeNode = 1, kIpv6ScopeLink = 2, kIpv6ScopeSite = 5, kIpv6ScopeGlobal = 14;
constexpr uint32_t lanhost_ipv6_scope_bits(uint32_t scope) { return scope << 16; }
// Flags of the classification word that callers test.
constexpr uint32_t kIpv6Unicast = 0x0001, kIpv6LinkLocal = 0x0020;
// A unicast address of global scope.
constexpr bool lanhost_ipv6_is_global(uint32_t type) {
    return (type & kIpv6Unicast) &&
           (type & lanhost_ipv6_scope_bits(kIpv6ScopeGlobal)) == lanhost_ipv6_scope_bits(kIpv6ScopeGlobal);
}
constexpr bool lanhost_ipv6_is_link_local(uint32_t type) { return (type & kIpv6Unicast) && (type & kIpv6LinkLocal); }

int ipv6_compare_interface_id(const char *a, const char *b);
// Required by the design, not called yet.
// out has room for kIpv6TextRoom bytes.
int ipv6_join_prefix_interface_id(const char *a, const char *b, char *out);

void dump_hex(const void *buf, size_t len);
