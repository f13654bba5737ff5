#include "usb_identify.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "agent_log.h"
#include "libzn.h"
#include "usb_list.h"
#include "usb_sysfs.h"

namespace {

constexpr size_t kWorkNameSize = 32;
constexpr size_t kLinkSize = 256;
constexpr size_t kLinkSkip = 5; // "../.." of "../../devices/..."
// Character and block special files alike give 0x2000 under this mask.
constexpr mode_t kDevNodeMask = 0xb000, kDevNodeBits = 0x2000;

// The first row whose kind matches and whose mark is in the name gives the class.
struct ClassRule {
    bool block;
    const char *nameMark;
    const char *devClass;
};
constexpr ClassRule kClassRules[] = {
    {true, "", "USB_STORAGE"},   {false, "tty", "USB_SERIAL"}, {false, "cdc", "USB_CDC_ACM"},
    {false, "input", "USB_HID"}, {false, "lp", "USB_PRINTER"},
};

// From the USB bus in a sysfs path to the physical port: buses 1 and 2 are
// the same port. The first row found wins.
struct PortRow {
    char busKey[16];
    char portLabel[16];
    int32_t portNum;
};
constexpr PortRow usbPortMap[] = {{"usb1", "USB1", 1}, {"usb2", "USB1", 1}, {"usb3", "USB2", 2}};

uint32_t parse_hex(const char *text) { return uint32_t(strtoul(text, nullptr, 16)); }

// Attributes of the USB device directory; a missing one leaves its field as it was.
struct NumberAttr {
    const char *name;
    uint32_t usbDevEntry::*field;
    uint32_t (*parse)(const char *);
};
constexpr NumberAttr kNumberAttrs[] = {{"idVendor", &usbDevEntry::idVendor, parse_hex},
                                       {"idProduct", &usbDevEntry::idProduct, parse_hex},
                                       {"bcdDevice", &usbDevEntry::bcdDevice, usbDigitsParse}};
struct TextAttr {
    const char *name;
    char (usbDevEntry::*field)[64];
};
constexpr TextAttr kTextAttrs[] = {
    {"manufacturer", &usbDevEntry::manufacturer}, {"product", &usbDevEntry::product}, {"serial", &usbDevEntry::serial}};

} // namespace

int usbDeviceEntryInfoGet(usbDevEntry *entry) {
    // The name came from outside: it must stay below /dev and may stand in shell lines.
    if (!usbDevNameIsPlain(entry->devName)) {
        ZN_LOG(1, "devName %s is not a plain device name, refused\n", entry->devName);
        return -1;
    }
    char name[kWorkNameSize];
    if (!usb_set_text(name, entry->devName)) {
        ZN_LOG(0, "%s name too long\n", entry->devName);
        return -1;
    }
    char node[sizeof "/dev/" + kWorkNameSize];
    snprintf(node, sizeof node, "/dev/%s", name);
    struct stat st;
    if (stat(node, &st) != 0) {
        ZN_LOG(0, "%s stat fail\n", node);
        return -1;
    }
    if ((st.st_mode & kDevNodeMask) != kDevNodeBits) {
        ZN_LOG(0, "not specaial file\n");
        return -1;
    }
    const bool block = S_ISBLK(st.st_mode);
    const ClassRule *rule = nullptr;
    for (const ClassRule &r : kClassRules) {
        if (r.block == block && strstr(name, r.nameMark)) {
            rule = &r;
            break;
        }
    }
    // A node without a class has no link, and so no path on USB.
    char link[kLinkSize] = {};
    if (rule) {
        char linkPath[64];
        snprintf(linkPath, sizeof linkPath, "/sys/dev/%s/%u:%u", block ? "block" : "char", major(st.st_rdev),
                 minor(st.st_rdev));
        if (readlink(linkPath, link, sizeof link - 1) < 0)
            link[0] = '\0';
    }
    usb_set_text(entry->eventType, kUsbDevInsert);
    usb_set_text(entry->devClass, rule ? rule->devClass : "");
    entry->devId = getUniqueUsbDeviceId();
    entry->mountPath[0] = '\0';
    usb_set_text(entry->sysPath, strlen(link) > kLinkSkip ? link + kLinkSkip : "");
    return UsbDevProductInfoGet(entry) == 0 ? 0 : -1;
}

int UsbDevProductInfoGet(usbDevEntry *entry) {
    char cut[sizeof entry->sysPath];
    usb_set_text(cut, entry->sysPath);
    if (!strstr(cut, "usb")) {
        ZN_LOG(0, "not usb device");
        return -1;
    }
    usbDevPathCut(cut);
    char text[kUsbAttrTextSize];
    for (const NumberAttr &a : kNumberAttrs) {
        if (usbSysAttrRead(cut, a.name, text))
            entry->*a.field = a.parse(text);
    }
    for (const TextAttr &a : kTextAttrs) {
        if (usbSysAttrRead(cut, a.name, text)) {
            usb_set_text(entry->*a.field, text);
            usb_blank_controls(entry->*a.field);
        }
    }
    entry->devPhyPort = 1;
    if (libzn_sys_getUsbNum() != 1) {
        for (const PortRow &row : usbPortMap) {
            if (strstr(cut, row.busKey)) {
                entry->devPhyPort = uint32_t(row.portNum);
                break;
            }
        }
    }
    entry->devPhyPortSubId = getUniqueUsbPortSubId(entry->devPhyPort);
    // The node's own directory, not the USB device's, says whether it is read-only.
    if (usbSysAttrRead(entry->sysPath, "ro", text))
        entry->readOnly = strcmp(text, "0") == 0 ? 0 : 1;
    return 0;
}
