// Host names from gb2312 to UTF-8 through iconv.
#include "lanhost_charset.h"

#include <cstring>

#include "zn_iconv.h"

int charsetConvert(const char *fromCode, const char *toCode, const char *input, size_t inputLength, char *output,
                   size_t outputSize) {
    iconv_t cd = libiconv_open(toCode, fromCode);
    if (cd == iconv_t(-1)) // NOLINT(performance-no-int-to-ptr): iconv_open's failure value
        return -1;
    memset(output, 0, outputSize);
    // iconv's interface takes the input as writable; it only reads it.
    char *in = const_cast<char *>(input);
    size_t inLeft = inputLength;
    char *out = output;
    size_t outLeft = outputSize ? outputSize - 1 : 0; // the last byte stays the terminator
    size_t converted = libiconv(cd, &in, &inLeft, &out, &outLeft);
    libiconv_close(cd);
    return converted == size_t(-1) ? -1 : 0;
}

int hostNameToUtf8(const char *input, size_t inputLength, char *output, size_t outputSize) {
    return charsetConvert("gb2312", "utf-8", input, inputLength, output, outputSize);
}
