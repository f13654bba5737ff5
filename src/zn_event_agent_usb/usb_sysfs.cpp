#include "usb_sysfs.h"

#include <unistd.h>

#include <cstdio>
#include <cstring>

namespace {

constexpr size_t kAttrPathSize = 128;

// Path marks and how many components lie between each and the USB device:
// .../3-1/3-1:1.0/ttyUSB0/tty/ttyUSB0, .../3-1/3-1:1.0/0003:0ABC:1DEF.0001/input/input5/event3,
// .../3-1/3-1:1.0/usbmisc/lp0.
struct CutRule {
    const char *mark;
    int components;
};
constexpr CutRule kCutRules[] = {{"/tty/ttyUSB", 4}, {"/input/input", 5}, {"/usbmisc", 3}};

// A SCSI disk: .../3-1/3-1:1.0/host0/target0:0:0/0:0:0:0/block/sda, with one
// more component for a partition (.../block/sda/sda1).
constexpr char kBlockMark[] = "/block/sd";
constexpr int kDiskComponents = 6;

void drop_components(char *path, int n) {
    for (; n > 0; n--) {
        char *slash = strrchr(path, '/');
        if (!slash)
            return;
        *slash = '\0';
    }
}

} // namespace

bool usbSysAttrRead(const char *path, const char *name, char (&text)[kUsbAttrTextSize]) {
    text[0] = '\0';
    char file[kAttrPathSize] = {};
    int len = snprintf(file, sizeof file, "/sys%s/%s", path, name);
    if (len < 0 || size_t(len) >= sizeof file || access(file, F_OK) != 0)
        return false;
    FILE *f = fopen(file, "re");
    if (!f)
        return false;
    if (!fgets(text, kUsbAttrTextSize, f))
        text[0] = '\0';
    fclose(f);
    text[strcspn(text, "\n")] = '\0';
    return text[0] != '\0';
}

uint32_t usbDigitsParse(const char *text) {
    while (*text == ' ' || *text == '\t')
        text++;
    uint32_t value = 0;
    for (; *text >= '0' && *text <= '9'; text++)
        value = value * 10 + uint32_t(*text - '0');
    return value;
}

char *usbDevPathCut(char *path) {
    if (const char *block = strstr(path, kBlockMark)) {
        // The character behind a single drive letter tells a disk from a partition.
        const char *letter = block + sizeof kBlockMark - 1;
        if (*letter && letter[1] == '\0')
            drop_components(path, kDiskComponents);
        else if (*letter && letter[1] == '/')
            drop_components(path, kDiskComponents + 1);
        return path;
    }
    for (const CutRule &r : kCutRules) {
        if (strstr(path, r.mark)) {
            drop_components(path, r.components);
            break;
        }
    }
    return path;
}
