// Character set conversion of host names reported from the LAN.
#pragma once

#include <cstddef>

// Converts inputLength bytes of input from fromCode to toCode into output,
// which is cleared first and always ends in a zero: at most outputSize - 1
// bytes are written, whole characters only. 0, or -1 when the converter
// can't be opened or the input can't be converted whole (what was converted
// before the fault stays in output).
int charsetConvert(const char *fromCode, const char *toCode, const char *input, size_t inputLength, char *output,
                   size_t outputSize);

// A host name in gb2312, as DHCP clients of the region send it, in UTF-8.
int hostNameToUtf8(const char *input, size_t inputLength, char *output, size_t outputSize);
