// The buttons' thread: key records from the input device, holds judged by
// the records' own stamps, and on release what the press meant.
#pragma once

#include <cstddef>
#include <cstdint>

#include "byte_cursor.h"

// One record of the input device.
struct KeyRecord {
    int64_t ms; // event time
    uint16_t type;
    uint16_t code;
    int32_t value;
};
// The record's fields, its time in milliseconds in signed 64-bit arithmetic
// that wraps rather than overflows. kTooShort unless len is one whole record.
Parse btn_parse(const uint8_t *bytes, size_t len, KeyRecord *out);

// Operator province: main fills it once before any worker exists, the
// buttons only read it.
extern char province[32];

// Thread entry; returns only when the input device can't be opened.
void *btn_handler(void *arg);

// The store's reset type (byte 25 of the system configuration): 0, or -1
// with *type untouched.
int getResetType(uint8_t *type);
