// A due task's text as the timer worker reads it, cut to its buffer: the
// task row it names and the index its handler would take.
#include <cstdint>
#include <cstring>

#include "agent_dgram.h"
#include "timer.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    char text[kAgentDgramSize] = {};
    memcpy(text, data, size < sizeof text - 1 ? size : sizeof text - 1);
    int index = 0;
    timerTaskOf(text);
    timerTaskIndex(text, &index);
    return 0;
}
