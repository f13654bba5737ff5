#include "usb_message.h"

#include <cstring>

#include "byte_cursor.h"

namespace {

// The next field after any commas, into out; false when there is none or it doesn't fit.
bool take_field(ByteCursor *text, char (&out)[kUsbMsgSize]) {
    out[0] = '\0';
    while (text->left() && *text->peek() == ',')
        text->skip(1);
    const uint8_t *start = text->peek();
    size_t n = 0;
    while (text->left() && *text->peek() != ',') {
        text->skip(1);
        n++;
    }
    if (n == 0 || n >= sizeof out)
        return false;
    memcpy(out, start, n);
    out[n] = '\0';
    return true;
}

} // namespace

bool usbHotplugMsgSplit(const uint8_t *bytes, size_t len, usbHotplugMsg *msg) {
    const void *zero = memchr(bytes, '\0', len);
    ByteCursor text(bytes, zero ? size_t(static_cast<const uint8_t *>(zero) - bytes) : len);
    bool action = take_field(&text, msg->action);
    bool devName = take_field(&text, msg->devName);
    return action && devName;
}
