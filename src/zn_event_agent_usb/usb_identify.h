// What a device is, from its node in /dev and its place in sysfs.
#pragma once

struct usbDevEntry;

// Fills class, id, sysPath, product data, port, sub-id and readOnly of an
// entry whose devName is set. 0, or -1 when the device is refused, with the
// log line of the step that refused it.
int usbDeviceEntryInfoGet(usbDevEntry *entry);

// Product data, physical port and sub-id, and readOnly, from the entry's
// sysPath. 0, or -1 when the path is not on USB.
int UsbDevProductInfoGet(usbDevEntry *entry);
