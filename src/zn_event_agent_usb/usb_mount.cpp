#include "usb_mount.h"

#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "agent_log.h"
#include "libzn.h"
#include "usb_list.h"
#include "usb_shell.h"

namespace {

constexpr const char *kMountPointFile = "/tmp/mountPoint";
constexpr size_t kDevPathSize = 128;
constexpr size_t kMountPointSize = 256;

// Where the mount table has the node mounted; empty when it hasn't.
void mounted_on(const char *devName, char (&point)[kMountPointSize]) {
    usb_shell("mount | grep '^/dev/%s on' | awk '{print $3}' > %s", devName, kMountPointFile);
    memset(point, 0, sizeof point);
    libzn_usb_readFileFirstLine(kMountPointFile, point);
    unlink(kMountPointFile);
}

int take_mount_path(usbDevEntry *entry, const char *point) {
    if (!usb_set_text(entry->mountPath, point)) {
        ZN_LOG(0, "mountPath %s too long\n", point);
        return -1;
    }
    return 0;
}

} // namespace

int mountUsbstorage(usbDevEntry *entry) {
    ZN_LOG(5, "devName %s\n", entry->devName);
    char devPath[kDevPathSize];
    snprintf(devPath, sizeof devPath, "/dev/%s", entry->devName);
    memset(entry->label, 0, sizeof entry->label);
    memset(entry->fsType, 0, sizeof entry->fsType);
    libzn_usb_getLabel(devPath, entry->label);
    libzn_usb_getFsType(devPath, entry->fsType);
    usb_blank_controls(entry->label);
    usb_blank_controls(entry->fsType);

    char point[kMountPointSize];
    mounted_on(entry->devName, point);
    if (point[0]) {
        ZN_LOG(1, "dev %s is already mounted on %s, do not mount again\n", entry->devName, point);
        return take_mount_path(entry, point);
    }

    char mountPath[kMountPointSize];
    if (libzn_sys_getUsbNum() == 1)
        snprintf(mountPath, sizeof mountPath, "/mnt/USB_disc%d", entry->devPhyPortSubId);
    else
        snprintf(mountPath, sizeof mountPath, "/mnt/usb%d_%d", entry->devPhyPort, entry->devPhyPortSubId);
    ZN_LOG(5, "mountPath %s\n", mountPath);
    usb_shell("mkdir -p %s", mountPath);
    usb_shell("chmod 777 %s", mountPath);
    if (strcmp(entry->fsType, "ntfs") == 0)
        usb_shell("/bin/ntfs-3g %s %s", devPath, mountPath);
    else
        usb_shell("mount -o fmask=0000,dmask=0000,allow_utime=0022 %s %s", devPath, mountPath);

    mounted_on(entry->devName, point);
    if (!point[0]) {
        ZN_LOG(0, "usb storage mount fail\n");
        return -1;
    }
    ZN_LOG(5, "mountPath1 %s\n", point);
    return take_mount_path(entry, point);
}
