// Fuzz target: one read of the input device into a key record.
#include "btn_reader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    KeyRecord r;
    btn_parse(data, size, &r);
    return 0;
}
