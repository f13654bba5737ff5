// Address helpers of the host table.
#include "lanhost_addr.h"

#include <arpa/inet.h>

#include <cctype>
#include <cstdio>
#include <cstring>

namespace {

int hex_digit(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return 0;
}

bool all_zero(const uint8_t *p, size_t n) {
    for (size_t i = 0; i < n; i++)
        if (p[i])
            return false;
    return true;
}

// The four octets of a valid dotted address.
bool ipv4_octets(const char *text, unsigned octets[4]) {
    if (!ipv4_str_is_valid(text))
        return false;
    return sscanf(text, "%u.%u.%u.%u", &octets[0], &octets[1], &octets[2], &octets[3]) == 4;
}

// Flags of the classification word beyond those callers test.
constexpr uint32_t kMulticast = 0x0002, kLoopback = 0x0010, kSiteLocal = 0x0040, kCompatV4 = 0x0080, kMapped = 0x1000;
constexpr uint32_t scope(uint32_t s) { return lanhost_ipv6_scope_bits(s); }

} // namespace

void lanhost_mac_text(const uint8_t *mac, bool upper, char (&out)[kMacTextSize]) {
    snprintf(out, sizeof out, upper ? "%02X:%02X:%02X:%02X:%02X:%02X" : "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1],
             mac[2], mac[3], mac[4], mac[5]);
}

void macStr_to_bytes(uint8_t *mac, const char *text) {
    for (size_t i = 0; i < 6; i++)
        mac[i] = uint8_t(hex_digit(text[i * 3]) << 4 | hex_digit(text[i * 3 + 1]));
}

bool lanhost_mac_str_is_valid(const char *text) {
    if (!text || strlen(text) != kMacTextSize - 1)
        return false;
    for (size_t i = 0; i < kMacTextSize - 1; i++)
        if (i % 3 == 2 ? text[i] != ':' : !isxdigit(static_cast<unsigned char>(text[i])))
            return false;
    return true;
}

void lanhost_ipv4_text(const uint8_t *a, char (&out)[kIpv4TextSize]) {
    snprintf(out, sizeof out, "%d.%d.%d.%d", a[0], a[1], a[2], a[3]);
}

uint32_t lhost_ipv6_addr_type(const uint8_t *a) {
    const uint8_t top = a[0] & 0xE0;
    if (top != 0x00 && top != 0xE0)
        return scope(kIpv6ScopeGlobal) | kIpv6Unicast;
    if (a[0] == 0xFF) {
        switch (a[1] & 0x0F) {
        case kIpv6ScopeNode:
            return scope(kIpv6ScopeNode) | kLoopback | kMulticast;
        case kIpv6ScopeLink:
            return scope(kIpv6ScopeLink) | kIpv6LinkLocal | kMulticast;
        case kIpv6ScopeSite:
            return scope(kIpv6ScopeSite) | kSiteLocal | kMulticast;
        default:
            return scope(a[1] & 0x0F) | kMulticast;
        }
    }
    if (a[0] == 0xFE && (a[1] & 0xC0) == 0x80)
        return scope(kIpv6ScopeLink) | kIpv6LinkLocal | kIpv6Unicast;
    if (a[0] == 0xFE && (a[1] & 0xC0) == 0xC0)
        return scope(kIpv6ScopeSite) | kSiteLocal | kIpv6Unicast;
    if ((a[0] & 0xFE) == 0xFC)
        return scope(kIpv6ScopeGlobal) | kIpv6Unicast;
    if (!all_zero(a, 8))
        return scope(kIpv6ScopeGlobal) | kIpv6Unicast;
    if (a[8] == 0 && a[9] == 0 && a[10] == 0xFF && a[11] == 0xFF)
        return scope(kIpv6ScopeGlobal) | kMapped;
    if (!all_zero(a + 8, 4))
        return scope(kIpv6ScopeGlobal) | kIpv6Unicast;
    if (all_zero(a + 12, 4))
        return 0;
    if (all_zero(a + 12, 3) && a[15] == 1)
        return scope(kIpv6ScopeLink) | kLoopback | kIpv6Unicast;
    return scope(kIpv6ScopeGlobal) | kCompatV4 | kIpv6Unicast;
}

int ipv6_compare_interface_id(const char *a, const char *b) {
    in6_addr x, y;
    if (inet_pton(AF_INET6, a, &x) != 1)
        return 0;
    if (all_zero(x.s6_addr + 8, 4))
        return 2;
    if (inet_pton(AF_INET6, b, &y) != 1)
        return 0;
    return memcmp(x.s6_addr + 8, y.s6_addr + 8, 8) != 0 ? 1 : 3;
}

int ipv6_join_prefix_interface_id(const char *a, const char *b, char *out) {
    in6_addr x, y;
    if (inet_pton(AF_INET6, a, &x) != 1 || inet_pton(AF_INET6, b, &y) != 1)
        return -1;
    memcpy(x.s6_addr + 8, y.s6_addr + 8, 8);
    return inet_ntop(AF_INET6, &x, out, kIpv6TextRoom) ? 0 : -1;
}

int ipv4_str_is_valid(const char *text) {
    if (!text || !*text)
        return 0;
    int parts = 0, digits = 0, value = 0;
    for (const char *p = text;; p++) {
        if (*p >= '0' && *p <= '9') {
            value = value * 10 + (*p - '0');
            if (++digits > 3 || value > 255)
                return 0;
        } else if (*p == '.' || *p == '\0') {
            if (digits == 0)
                return 0;
            parts++;
            digits = value = 0;
            if (*p == '\0')
                break;
        } else {
            return 0;
        }
    }
    return parts == 4;
}

int ipv4_same_subnet(const char *a, const char *b, const char *mask) {
    unsigned x[4], y[4], m[4];
    if (!ipv4_octets(a, x) || !ipv4_octets(b, y) || !ipv4_octets(mask, m))
        return 0;
    for (int i = 0; i < 4; i++)
        if ((x[i] & m[i]) != (y[i] & m[i]))
            return 0;
    return 1;
}

void dump_hex(const void *buf, size_t len) {
    if (!buf) {
        printf("buf = NULL");
    } else {
        const auto *p = static_cast<const uint8_t *>(buf);
        for (size_t i = 0; i < len; i++)
            printf("%02hhx ", p[i]);
    }
    printf("\n");
    fflush(stdout);
}
