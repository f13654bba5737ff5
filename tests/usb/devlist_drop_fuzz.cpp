// The list-file rewrite by id: the first byte is the id, the rest the file.
// What is kept is the file less whole lines, and holds no line of the id.
#include <cstdlib>
#include <string>

#include "usb_devlist.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0)
        return 0;
    const uint32_t id = data[0];
    const char *text = reinterpret_cast<const char *>(data + 1);
    std::string kept, again;
    bool dropped = usbDevListDropId(text, size - 1, id, &kept);
    if (dropped != (kept.size() < size - 1) || kept.size() > size - 1 ||
        usbDevListDropId(kept.data(), kept.size(), id, &again) || again != kept)
        abort();
    return 0;
}
