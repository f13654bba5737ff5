#include "usb_list.h"

#include <cstring>

#include "agent_log.h"
#include "usb_sysfs.h"

usbDevEntry *usbDevList;

namespace {

constexpr uint32_t kUsbNumberMax = 32; // ids and sub-ids run from 1 to this; one more means none was free

// The USB device directory a sysfs path belongs to.
void cut_copy(const char *sysPath, char (&out)[sizeof usbDevEntry::sysPath]) {
    usb_set_text(out, sysPath);
    usbDevPathCut(out);
}

bool plain_char(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '-' ||
           c == '.' || c == '/';
}

} // namespace

void usb_blank_controls(char *text) {
    for (; *text; text++) {
        if (static_cast<unsigned char>(*text) < 0x20 || *text == 0x7f)
            *text = ' ';
    }
}

bool usbDevNameIsPlain(const char *name) {
    if (!*name)
        return false;
    for (const char *c = name; *c; c++) {
        if (!plain_char(*c))
            return false;
    }
    // A ".." component: the whole name, or one between slashes or at either end.
    const size_t len = strlen(name);
    return strcmp(name, "..") != 0 && strncmp(name, "../", 3) != 0 && !strstr(name, "/../") &&
           !(len >= 3 && strcmp(name + len - 3, "/..") == 0);
}

uint32_t getUniqueUsbDeviceId() {
    for (uint32_t id = 1; id <= kUsbNumberMax; id++) {
        const usbDevEntry *e = usbDevList;
        while (e && e->devId != id)
            e = e->next;
        if (!e)
            return id;
    }
    ZN_LOG(0, "get devId fail");
    return kUsbNumberMax + 1;
}

uint32_t getUniqueUsbPortSubId(uint32_t port) {
    for (uint32_t sub = 1; sub <= kUsbNumberMax; sub++) {
        bool used = false;
        for (const usbDevEntry *e = usbDevList; e; e = e->next) {
            if (e->devPhyPort == port && e->devPhyPortSubId == sub) {
                ZN_LOG(5, "usbDevEntry devId=%d,devPhyPort=%d,devPhyPortSubId=%d", e->devId, e->devPhyPort,
                       e->devPhyPortSubId);
                used = true;
            }
        }
        if (!used)
            return sub;
    }
    ZN_LOG(0, "get portSubId fail");
    return kUsbNumberMax + 1;
}

int isNewDevice(const usbDevEntry *entry) {
    for (const usbDevEntry *e = usbDevList; e; e = e->next) {
        if (strcmp(e->sysPath, entry->sysPath) == 0) {
            ZN_LOG(0, "find same device for [%s]\n", entry->sysPath);
            return 0;
        }
    }
    return 1;
}

int isMoreStorageForOneDev(const usbDevEntry *entry) {
    char mine[sizeof entry->sysPath];
    cut_copy(entry->sysPath, mine);
    for (const usbDevEntry *e = usbDevList; e; e = e->next) {
        char theirs[sizeof e->sysPath];
        cut_copy(e->sysPath, theirs);
        if (strcmp(mine, theirs) == 0 && strcmp(e->sysPath, entry->sysPath) != 0) {
            ZN_LOG(0, "this device find more storage partitions [%s]\n", entry->sysPath);
            return 1;
        }
    }
    return 0;
}
