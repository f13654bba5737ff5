#include "usb_devlist.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "agent_log.h"
#include "usb_list.h"
#include "usb_sysfs.h"
#include "znsmsg.h"

namespace {

constexpr size_t kLineSize = 1024;
constexpr uint32_t kTextCode = 0xC0000000;

// Columns: id, node, class, port, sub-id, mount point, vendor, product id,
// product, manufacturer, serial, bcdDevice, file system, label, read-only.
void format_line(const usbDevEntry *e, char (&line)[kLineSize]) {
    snprintf(line, sizeof line, "%d, /dev/%s, %s, %d, %d, %s, %04x, %04x, %s, %s, %s, %d, %s, %s, %d\n", e->devId,
             e->devName, e->devClass, e->devPhyPort, e->devPhyPortSubId, e->mountPath, e->idVendor, e->idProduct,
             e->product, e->manufacturer, e->serial, e->bcdDevice, e->fsType, e->label, e->readOnly);
}

// The lines of the file, from the current position to the end.
std::string read_rest(FILE *f) {
    std::string text;
    size_t size = kLineSize;
    char *buf = static_cast<char *>(malloc(size));
    ssize_t n;
    while (buf && (n = getline(&buf, &size, f)) > 0)
        text.append(buf, size_t(n));
    free(buf);
    return text;
}

} // namespace

void warpperUsbDeviceEventSend(const usbDevEntry *entry) {
    char line[kLineSize] = {};
    format_line(entry, line);
    if (strcmp(entry->eventType, kUsbDevInsert) == 0) {
        if (addToUsbDevListFile2(line) == 1) {
            ZN_LOG(5, "send ZNS_EVENT_USB_ADD %d\n", ZNS_EVENT_USB_ADD);
            zns_eventNotify(ZNS_EVENT_USB_ADD, kTextCode, line);
        }
    } else if (strcmp(entry->eventType, kUsbDevPull) == 0) {
        if (delFromUsbDevListFile2(line) == 1) {
            ZN_LOG(5, "send ZNS_EVENT_USB_REMOVE %d\n", ZNS_EVENT_USB_REMOVE);
            zns_eventNotify(ZNS_EVENT_USB_REMOVE, kTextCode, line);
        }
    }
}

int addToUsbDevListFile2(const char *line) {
    FILE *f = fopen(kUsbDevListFile, "a+");
    if (!f) {
        ZN_LOG(1, "fopen %s fail\n", kUsbDevListFile);
        return -1;
    }
    size_t size = kLineSize;
    char *have = static_cast<char *>(malloc(size));
    bool listed = false;
    while (have && !listed && getline(&have, &size, f) > 0)
        listed = strcmp(have, line) == 0;
    free(have);
    if (!listed) {
        fputs(line, f);
        fflush(f);
    }
    fclose(f);
    return listed ? 0 : 1;
}

int delFromUsbDevListFile2(const char *line) {
    if (!line)
        return -1;
    FILE *f = fopen(kUsbDevListFile, "r");
    if (!f) {
        ZN_LOG(1, "fopen %s fail\n", kUsbDevListFile);
        return -1;
    }
    const std::string text = read_rest(f);
    fclose(f);
    std::string kept;
    bool dropped = usbDevListDropId(text.data(), text.size(), usbDigitsParse(line), &kept);
    f = fopen(kUsbDevListFile, "w");
    if (!f) {
        ZN_LOG(1, "fopen %s fail\n", kUsbDevListFile);
        return -1;
    }
    fwrite(kept.data(), 1, kept.size(), f);
    fflush(f);
    fclose(f);
    return dropped ? 1 : 0;
}

bool usbDevListDropId(const char *text, size_t len, uint32_t id, std::string *kept) {
    bool dropped = false;
    while (len > 0) {
        const char *end = static_cast<const char *>(memchr(text, '\n', len));
        size_t n = end ? size_t(end - text) + 1 : len;
        // A terminated copy for the parse, which stops at the first non-digit.
        std::string line(text, n);
        if (usbDigitsParse(line.c_str()) == id)
            dropped = true;
        else
            kept->append(line);
        text += n;
        len -= n;
    }
    return dropped;
}
