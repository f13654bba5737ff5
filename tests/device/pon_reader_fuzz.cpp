// Fuzz target: one message of the PON driver into the payload record, and what the record says.
#include "pon_events.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    uint8_t event[kPonEventRoom] = {};
    if (pon_parse(data, size, event) == Parse::kOk)
        pon_mode_index(pon_read(event).wanMode);
    return 0;
}
