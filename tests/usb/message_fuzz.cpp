// The hot-plug datagram split: fields end inside their buffers, hold no
// comma, and both are there whenever the split says so.
#include <cstdlib>
#include <cstring>

#include "usb_message.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    usbHotplugMsg msg;
    bool whole = usbHotplugMsgSplit(data, size, &msg);
    if (strchr(msg.action, ',') || strchr(msg.devName, ',') || whole != (msg.action[0] && msg.devName[0]))
        abort();
    return 0;
}
