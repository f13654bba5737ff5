#include "usb_thread.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "agent_dgram.h"
#include "agent_log.h"
#include "usb_devlist.h"
#include "usb_identify.h"
#include "usb_list.h"
#include "usb_message.h"
#include "usb_mount.h"
#include "usb_shell.h"

namespace {

constexpr const char *kScanFile = "/tmp/usbDevice";
constexpr const char *kOsgiDoneFile = "/tmp/osgiDone";
constexpr char kDevPrefix[] = "/dev/";

// A scan line that names no path gets the directory its kind lives in.
struct ScanDir {
    const char *mark;
    const char *dir;
};
constexpr ScanDir kScanDirs[] = {{"event", "input/"}, {"lp", "usb/"}};

} // namespace

const char *usbScanLineName(const char *line, char (&name)[kUsbScanNameSize]) {
    const char *dir = "";
    if (strncmp(line, kDevPrefix, sizeof kDevPrefix - 1) == 0) {
        line += sizeof kDevPrefix - 1;
    } else {
        for (const ScanDir &d : kScanDirs) {
            if (strstr(line, d.mark)) {
                dir = d.dir;
                break;
            }
        }
    }
    snprintf(name, sizeof name, "%s%s", dir, line);
    return name;
}

namespace {

void usbDevRemove(const char *devName) {
    for (usbDevEntry **at = &usbDevList; *at; at = &(*at)->next) {
        usbDevEntry *e = *at;
        if (strcmp(e->devName, devName) == 0) {
            usb_set_text(e->eventType, kUsbDevPull);
            warpperUsbDeviceEventSend(e);
            *at = e->next;
            free(e);
            return;
        }
    }
}

struct Action {
    const char *name;
    void (*run)(const char *devName);
};
constexpr Action kActions[] = {{"add", usbDevAdmit}, {"remove", usbDevRemove}};

// One message: "ACTION,DEVNAME", both fields there, an action of the table.
void handle_message(const char (&buf)[kAgentDgramSize]) {
    usbHotplugMsg msg;
    bool whole = usbHotplugMsgSplit(reinterpret_cast<const uint8_t *>(buf), sizeof buf, &msg);
    ZN_LOG(5, "action: %s\n", msg.action);
    ZN_LOG(5, "devName: %s\n", msg.devName);
    if (!whole)
        return;
    for (const Action &a : kActions) {
        if (strcmp(msg.action, a.name) == 0) {
            a.run(msg.devName);
            return;
        }
    }
}

} // namespace

void usbDevAdmit(const char *devName) {
    usbDevEntry entry{};
    usb_set_text(entry.devName, devName);
    if (usbDeviceEntryInfoGet(&entry) != 0 || !isNewDevice(&entry))
        return;
    if (strcmp(entry.devClass, kUsbStorage) == 0 && mountUsbstorage(&entry) != 0)
        return;
    if (isMoreStorageForOneDev(&entry))
        return;
    auto *listed = static_cast<usbDevEntry *>(malloc(sizeof entry));
    if (!listed) {
        ZN_LOG(0, "malloc usbDevEntry fail\n");
        return;
    }
    *listed = entry;
    listed->next = usbDevList;
    usbDevList = listed;
    warpperUsbDeviceEventSend(listed);
}

void usbDevFirstScan() {
    // The first line creates the work file, the others append. Storage
    // counts only when the mount table has it.
    usb_shell("ls /dev | grep 'ttyUSB' > %s", kScanFile);
    usb_shell("mount | grep '^/dev/sd' | awk '{print $1}'>> %s", kScanFile);
    usb_shell("ls /dev/input | grep 'event' >> %s", kScanFile);
    usb_shell("ls /dev/usb | grep 'lp' >> %s", kScanFile);
    FILE *f = fopen(kScanFile, "r");
    if (!f) {
        unlink(kScanFile);
        return;
    }
    char line[kUsbScanLineSize];
    char name[kUsbScanNameSize];
    while (fgets(line, sizeof line, f)) {
        size_t len = strlen(line);
        if (len && line[len - 1] == '\n')
            line[len - 1] = '\0';
        usbDevAdmit(usbScanLineName(line, name));
    }
    fclose(f);
    unlink(kScanFile);
}

int checkOSGI(unsigned timeoutSeconds) {
    for (unsigned failed = 0;; failed++) {
        if (access(kOsgiDoneFile, F_OK) == 0) {
            ZN_LOG(5, "felix framework is done\n");
            return 0;
        }
        if (failed == timeoutSeconds) {
            ZN_LOG(0, "checkOSGI timeout\n");
            return -1;
        }
        sleep(1);
    }
}

void *kernelKobjectEventHandler(void *) {
    usbDevList = nullptr;
    int fd = zn_event_dgram_sock_init(kUsbSocketPath);
    if (fd < 0)
        return nullptr;
    // No list file of an earlier run survives; a message sent meanwhile waits in the socket.
    usb_shell("rm -rf %s", kUsbDevListFile);
    usbDevFirstScan();
    for (;;) {
        char buf[kAgentDgramSize];
        if (zn_event_dgram_read(fd, buf))
            handle_message(buf);
    }
}
