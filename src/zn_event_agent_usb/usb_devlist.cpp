#include "usb_devlist.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "agent_log.h"
#include "unique_fd.h"
#include "usb_list.h"
#include "usb_sysfs.h"
#include "znsmsg.h"

namespace {

constexpr size_t kLineSize = 1024;
constexpr const char *kUsbDevListNewFile = "/tmp/usbDevListMore.new";
constexpr uint32_t kTextCode = 0xC0000000;

// Columns: id, node, class, port, sub-id, mount point, vendor, product id,
// product, manufacturer, serial, bcdDevice, file system, label, read-only.
void format_line(const usbDevEntry *e, char (&line)[kLineSize]) {
    snprintf(line, sizeof line, "%d, /dev/%s, %s, %d, %d, %s, %04x, %04x, %s, %s, %s, %d, %s, %s, %d\n", e->devId,
             e->devName, e->devClass, e->devPhyPort, e->devPhyPortSubId, e->mountPath, e->idVendor, e->idProduct,
             e->product, e->manufacturer, e->serial, e->bcdDevice, e->fsType, e->label, e->readOnly);
}

// The whole file with a NUL behind it, in a buffer the caller frees; null
// when it can't be read.
char *read_all(FILE *f, size_t *len) {
    struct stat st;
    if (fstat(fileno(f), &st) != 0)
        return nullptr;
    char *text = static_cast<char *>(malloc(size_t(st.st_size) + 1));
    if (!text)
        return nullptr;
    *len = fread(text, 1, size_t(st.st_size), f);
    text[*len] = '\0';
    return text;
}

// Writes text to a new file and renames it over the list, rather than
// rewriting the list in place: a reader never finds it truncated or half
// written. 0, or -1 with the list as it was.
int replace_list(const char *text, size_t len) {
    FILE *f = fopen(kUsbDevListNewFile, "w");
    if (!f) {
        ZN_LOG(1, "fopen %s fail\n", kUsbDevListNewFile);
        return -1;
    }
    const bool written = fwrite(text, 1, len, f) == len && fflush(f) == 0;
    if (fclose(f) != 0 || !written || rename(kUsbDevListNewFile, kUsbDevListFile) != 0) {
        ZN_LOG(1, "write %s fail\n", kUsbDevListFile);
        unlink(kUsbDevListNewFile);
        return -1;
    }
    return 0;
}

// With /tmp full there is no room for a new file, but a list that only
// shrinks fits in its own blocks: rewritten in place then, so that the gone
// device's line leaves and its freed id is never listed twice.
int shrink_list_in_place(const char *text, size_t len) {
    const UniqueFd fd(open(kUsbDevListFile, O_WRONLY | O_CLOEXEC));
    if (!fd || pwrite(fd.get(), text, len, 0) != ssize_t(len) || ftruncate(fd.get(), off_t(len)) != 0) {
        ZN_LOG(1, "rewrite %s in place fail\n", kUsbDevListFile);
        return -1;
    }
    return 0;
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
    // Written past stdio, so that a line that can't be written whole (a full
    // /tmp) is taken back out and no rest of it is flushed later.
    const long end = ftell(f);
    const size_t n = strlen(line);
    const bool written = listed || write(fileno(f), line, n) == ssize_t(n);
    if (!written && (end < 0 || ftruncate(fileno(f), end) != 0))
        ZN_LOG(1, "truncate %s fail\n", kUsbDevListFile);
    fclose(f);
    if (!written) {
        ZN_LOG(1, "write %s fail\n", kUsbDevListFile);
        return -1;
    }
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
    size_t len = 0;
    char *text = read_all(f, &len);
    fclose(f);
    if (!text) {
        ZN_LOG(1, "read %s fail\n", kUsbDevListFile);
        return -1;
    }
    bool dropped = usbDevListDropId(text, &len, usbDigitsParse(line));
    const int replaced = replace_list(text, len) == 0 || shrink_list_in_place(text, len) == 0 ? 0 : -1;
    free(text);
    return replaced == 0 ? (dropped ? 1 : 0) : -1;
}

bool usbDevListDropId(char *text, size_t *len, uint32_t id) {
    bool dropped = false;
    size_t kept = 0;
    for (size_t at = 0; at < *len;) {
        const char *end = static_cast<const char *>(memchr(text + at, '\n', *len - at));
        size_t n = end ? size_t(end - (text + at)) + 1 : *len - at;
        // The parse stops at the line feed or, on a last line without one, at the NUL.
        if (usbDigitsParse(text + at) == id) {
            dropped = true;
        } else {
            memmove(text + kept, text + at, n);
            kept += n;
        }
        at += n;
    }
    text[kept] = '\0';
    *len = kept;
    return dropped;
}
