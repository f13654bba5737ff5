// The hot-plug datagram: "add,sda1" or "remove,sda1", plain text.
#pragma once

#include <cstddef>
#include <cstdint>

constexpr size_t kUsbMsgSize = 256; // the receive buffer; the text is at most 255 bytes

struct usbHotplugMsg {
    char action[kUsbMsgSize];
    char devName[kUsbMsgSize];
};

// Splits the text at commas the way strtok_r does: a run of commas counts
// as one, empty fields don't exist, a zero byte ends the text, fields after
// the second are ignored. A missing field, or one too long for its buffer,
// is left empty. Whether both fields are there.
bool usbHotplugMsgSplit(const uint8_t *bytes, size_t len, usbHotplugMsg *msg);
