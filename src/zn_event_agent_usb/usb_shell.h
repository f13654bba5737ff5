// Shell lines of the USB thread.
#pragma once

// Forms the line and runs it through system; the exit status is not read.
// A line that doesn't fit 511 bytes is not run.
void usb_shell(const char *fmt, ...) __attribute__((format(printf, 1, 2)));
