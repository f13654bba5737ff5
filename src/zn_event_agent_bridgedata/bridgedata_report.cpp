// The walk of the component's datagrams and the texts of one report.
#include <linux/netlink.h>

#include <cstdio>
#include <cstring>

#include "bridgedata.h"
#include "byte_cursor.h"

namespace {

// A report behind its netlink header, integers as bytes in wire order.
struct WireReport {
    char InterfaceName[16];
    uint8_t dmac[6];
    uint8_t smac[6];
    uint8_t sessionID[2]; // network byte order
    uint8_t unused[2];
    uint8_t ip[4];
    uint8_t dns[4];
};
static_assert(sizeof(WireReport) == 40, "a report is 56 bytes with its header");
static_assert(sizeof(bridgedataReport::InterfaceName) > sizeof(WireReport::InterfaceName));

// Bytes as text, byte by byte, in a zeroed buffer: two hexadecimal digits
// joined by ':' for a MAC, decimal numbers joined by '.' for an address.
template <size_t N> void bytes_text(char (&out)[kBridgeDataTextSize], const uint8_t (&bytes)[N]) {
    constexpr bool mac = N == sizeof(WireReport::dmac);
    memset(out, 0, sizeof out);
    for (size_t i = 0; i < N; i++) {
        const size_t at = strlen(out);
        const char *sep = i + 1 == N ? "" : mac ? ":" : ".";
        if (mac)
            snprintf(out + at, sizeof out - at, "%02x%s", bytes[i], sep);
        else
            snprintf(out + at, sizeof out - at, "%d%s", bytes[i], sep);
    }
}

bool parse_report(ByteCursor msg, bridgedataReport *out) {
    WireReport w;
    if (!msg.take_into(&w))
        return false;
    memset(out, 0, sizeof *out);
    memcpy(out->InterfaceName, w.InterfaceName, sizeof w.InterfaceName);
    out->sessionID = uint32_t(w.sessionID[0]) << 8 | w.sessionID[1];
    bytes_text(out->smac, w.smac);
    bytes_text(out->dmac, w.dmac);
    bytes_text(out->ip, w.ip);
    bytes_text(out->dns, w.dns);
    return true;
}

} // namespace

void bridgedata_walk(const uint8_t *bytes, size_t len, void (*on_report)(const bridgedataReport &report)) {
    ByteCursor rest(bytes, len);
    for (;;) {
        ByteCursor head = rest;
        nlmsghdr hdr;
        ByteCursor msg(nullptr, 0);
        if (!head.take_into(&hdr) || hdr.nlmsg_len < sizeof hdr || !rest.sub(hdr.nlmsg_len, &msg) ||
            hdr.nlmsg_type == NLMSG_ERROR)
            return;
        if (hdr.nlmsg_type == NLMSG_DONE) {
            bridgedataReport report;
            msg.skip(sizeof hdr);
            if (parse_report(msg, &report))
                on_report(report);
            else
                printf("bridgedata-event_agent short report(len=%u) \n", hdr.nlmsg_len);
        }
        if (!rest.skip(NLMSG_ALIGN(hdr.nlmsg_len) - hdr.nlmsg_len))
            return;
    }
}
