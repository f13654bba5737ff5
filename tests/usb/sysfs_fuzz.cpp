// Fuzz target: the texts the USB worker takes from sysfs and its scan:
// a node's link cut to its USB device, a decimal attribute, a scan line.
#include <cstdlib>
#include <cstring>
#include <string>

#include "usb_sysfs.h"
#include "usb_thread.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    char text[256] = {};
    memcpy(text, data, size < sizeof text - 1 ? size : sizeof text - 1);
    const std::string line = text;
    usbDigitsParse(text);
    char name[kUsbScanNameSize];
    if (strlen(usbScanLineName(text, name)) < line.size() - (line.rfind("/dev/", 0) == 0 ? 5 : 0))
        abort();
    const size_t before = strlen(text);
    if (strlen(usbDevPathCut(text)) > before)
        abort();
    return 0;
}
