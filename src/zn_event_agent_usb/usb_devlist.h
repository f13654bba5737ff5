// The device list file, one line of 15 columns per listed device, newest
// last, and the bus events that report its changes with that line.
#pragma once

#include <cstddef>
#include <cstdint>

struct usbDevEntry;

constexpr const char *kUsbDevListFile = "/tmp/usbDevListMore";

// By the entry's eventType: appends its line to the file and raises 1300,
// or takes the lines of its id out and raises 1301, in each case only when
// the file changed. The event carries the line with its line feed.
void warpperUsbDeviceEventSend(const usbDevEntry *entry);

// 1 appended, 0 the same line (line feed included) is there already, -1 the
// file can't be opened or the line can't be written whole (none of it stays).
int addToUsbDevListFile2(const char *line);

// Takes out every line whose number before the first comma is that of line,
// rewriting the file also when none has it. 1 a line taken out, 0 none, -1
// null line or the file can't be read or rewritten (it stays as it was).
int delFromUsbDevListFile2(const char *line);

// Takes the lines whose number before the first comma is id out of the len
// bytes of text, keeping the others in their order at its start and a NUL
// behind them; len becomes their length. text holds a NUL at text[len] on
// entry; its last line may lack its line feed. Whether a line was taken out.
bool usbDevListDropId(char *text, size_t *len, uint32_t id);
