// iconv under the names of GNU libiconv (libiconv_open, libiconv,
// libiconv_close), which the gateway's firmware links. GNU libiconv's own
// <iconv.h> declares them (and then needs -liconv); where only the C
// library's iconv exists, as with glibc, it stands in under those names.
// This header lives beside its one user, the host tracker, and not in
// platform/include: that directory holds only the declarations of the
// gateway's closed libraries, while iconv is an open library linked as is.
#pragma once

#include <iconv.h>

#ifndef _LIBICONV_VERSION
inline iconv_t libiconv_open(const char *toCode, const char *fromCode) { return iconv_open(toCode, fromCode); }
inline size_t libiconv(iconv_t cd, char **in, size_t *inLeft, char **out, size_t *outLeft) {
    return iconv(cd, in, inLeft, out, outLeft);
}
inline int libiconv_close(iconv_t cd) { return iconv_close(cd); }
#endif
