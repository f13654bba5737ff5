// Reading a device's place and data in sysfs.
#pragma once

#include <cstddef>
#include <cstdint>

constexpr size_t kUsbAttrTextSize = 128;

// The first line of the attribute file "/sys" + path + "/" + name, without
// its line feed, into text; empty when the file is missing, unreadable or
// empty, or when the whole file name doesn't fit 127 bytes. Whether text is
// not empty.
bool usbSysAttrRead(const char *path, const char *name, char (&text)[kUsbAttrTextSize]);

// Leading blanks skipped, then decimal digits up to the first other
// character: "0100" gives 100, "01a0" gives 1, "" gives 0.
uint32_t usbDigitsParse(const char *text);

// Shortens a sysfs device path in place to the directory of its USB device
// (the one holding idVendor): a disk, a partition, a USB serial port, an
// input event node or a USB printer. Other paths stay as they are.
char *usbDevPathCut(char *path);
