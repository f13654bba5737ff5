// The USB devices the agent knows: one record per physical device, in a list
// that the USB thread alone touches, and the numbering of its members.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

struct usbDevEntry {
    usbDevEntry *next;
    char eventType[32];
    char devClass[32];
    uint32_t devId;
    char devName[64];
    char mountPath[128];
    uint32_t idVendor;
    uint32_t idProduct;
    uint32_t bcdDevice;
    char manufacturer[64];
    char product[64];
    char serial[64];
    char sysPath[256];
    uint32_t devPhyPort;
    uint32_t devPhyPortSubId;
    char fsType[8];
    char label[64];
    uint32_t readOnly;
};

constexpr const char *kUsbDevInsert = "USB_DEV_INSERT";
constexpr const char *kUsbDevPull = "USB_DEV_PULL";
constexpr const char *kUsbStorage = "USB_STORAGE";

// Newest first; entries are heap copies owned by the list.
extern usbDevEntry *usbDevList;

// The one way text enters a field of a record: cut to fit, always
// NUL-terminated; whether all of it fitted.
template <size_t N> bool usb_set_text(char (&field)[N], const char *text) {
    const size_t len = strnlen(text, N);
    const size_t n = len < N ? len : N - 1;
    memmove(field, text, n);
    field[n] = '\0';
    return len < N;
}

// Control bytes (below 0x20, and 0x7f) of a device's text become blanks:
// the text stands in one line of the list file.
void usb_blank_controls(char *text);

// Whether a device name from outside is plain: not empty, only letters,
// digits, "_", "-", "." and the "/" of names such as input/event3, and no
// ".." component, so that it stays below /dev and may stand in a shell line.
bool usbDevNameIsPlain(const char *name);

// The lowest id from 1 to 32 that no listed entry holds, or 33.
uint32_t getUniqueUsbDeviceId();
// The lowest sub-id from 1 to 32 free on the port, or 33.
uint32_t getUniqueUsbPortSubId(uint32_t port);
// 1 when no listed entry has the entry's sysPath, else 0.
int isNewDevice(const usbDevEntry *entry);
// 1 when another node of the entry's physical device is listed, else 0.
int isMoreStorageForOneDev(const usbDevEntry *entry);
