// Fuzz target: one read of the input device into a key record.
#include <linux/input.h>

#include <cstdlib>

#include "btn_reader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    KeyRecord r;
    if ((btn_parse(data, size, &r) == Parse::kOk) != (size == sizeof(input_event)))
        abort();
    return 0;
}
