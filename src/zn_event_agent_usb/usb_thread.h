// The USB hot-plug thread: the hot-plug socket, the first scan of what is
// plugged in already, and the road of a device into and out of the list.
#pragma once

#include <cstddef>

constexpr const char *kUsbSocketPath = "/tmp/zn_event_agent_usb";
constexpr size_t kUsbScanLineSize = 256;
// A scan line with the longest directory put before it.
constexpr size_t kUsbScanNameSize = kUsbScanLineSize + 8;

// Thread entry; in normal running it never returns. It ends in silence when
// its socket can't be set up.
void *kernelKobjectEventHandler(void *arg);

// Admits what exists before the first message: serial ports, mounted
// partitions, input event nodes and printers, through a work file.
void usbDevFirstScan();
// The node below /dev that a line of the scan's work file names: a path
// under /dev, or a bare name given the directory of its kind; into name,
// cut to fit, and returned.
const char *usbScanLineName(const char *line, char (&name)[kUsbScanNameSize]);

// Identifies, numbers and, for storage, mounts the device of a node below
// /dev; lists it and reports it unless a step refuses it.
void usbDevAdmit(const char *devName);

// Waits for the OSGi framework's marker file: a test at once and one after
// each second, timeoutSeconds + 1 in all. 0 when it is there, else -1.
int checkOSGI(unsigned timeoutSeconds);
