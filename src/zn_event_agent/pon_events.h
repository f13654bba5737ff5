// The PON driver's messages on netlink protocol 25: WAN mode changes to the
// bus, a file and the store; recoveries of the driver to the system log and
// the commands they call for.
#pragma once

#include <cstddef>
#include <cstdint>

#include "byte_cursor.h"

constexpr size_t kPonEventRoom = 64; // the payload record, ponApi_event

// Thread entry; returns only when the socket can't be set up.
void *ponEventHandler(void *arg);

// Copies the payload of one received driver message into the record: the
// message length less its 16-byte header, no more than was received or than
// the record holds; bytes beyond stay as they were, since the record is
// never cleared between messages. The record is untouched on a refusal:
// kTooShort without a whole header, kBadLength for a length below one.
Parse pon_parse(const uint8_t *buf, size_t len, uint8_t (&event)[kPonEventRoom]);

// What the record says.
struct PonEvent {
    uint8_t type;      // 9 WAN change, 14 recovered
    uint32_t wanMode;  // of a WAN change
    uint8_t recovered; // the recovered type
};
PonEvent pon_read(const uint8_t (&event)[kPonEventRoom]);
// The mode index of a WAN mode, 0 "EPON" or 1 "GPON"; -1 for an unknown mode.
int pon_mode_index(uint32_t wanMode);
