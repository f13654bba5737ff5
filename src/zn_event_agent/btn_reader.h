// The buttons' thread: key records from the input device, holds judged by
// the records' own stamps, and on release what the press meant.
#pragma once

#include <cstdint>

// The store's reset type (byte 25 of the system configuration): 0, or -1
// with *type untouched.
int getResetType(uint8_t *type);
