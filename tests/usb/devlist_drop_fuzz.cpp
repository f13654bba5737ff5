// The list-file rewrite by id: the first byte is the id, the rest the file.
// What is kept is the file less whole lines, and holds no line of the id.
#include <cstdlib>
#include <string>

#include "usb_devlist.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0)
        return 0;
    const uint32_t id = data[0];
    std::string text(reinterpret_cast<const char *>(data + 1), size - 1);
    size_t kept = text.size();
    bool dropped = usbDevListDropId(text.data(), &kept, id);
    size_t again = kept;
    if (dropped != (kept < size - 1) || kept > size - 1 || usbDevListDropId(text.data(), &again, id) ||
        again != kept)
        abort();
    return 0;
}
