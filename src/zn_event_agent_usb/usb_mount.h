// Mounting of USB storage. The mount table alone says whether, and where, a
// device is mounted.
#pragma once

struct usbDevEntry;

// Sets label and fsType of the entry, mounts it on /mnt/USB_disc<sub-id>
// (a board with one port) or /mnt/usb<port>_<sub-id> unless the mount table
// has it already, and sets mountPath to where the table then has it.
// 0, or -1 when it is not in the table (the directory stays). The name must
// be plain (usbDevNameIsPlain): it stands in shell lines.
int mountUsbstorage(usbDevEntry *entry);
