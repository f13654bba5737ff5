// USB storage queries through libblkid, on the real device node.
#include <blkid.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "libzn.h"

namespace {

constexpr size_t kLabelLen = 64;
constexpr size_t kFsTypeLen = 8;

int probe_value(const char *dev, const char *name, char *out, size_t size) {
    if (!dev || !out)
        return -1;
    char *v = blkid_get_tag_value(nullptr, name, dev);
    if (!v)
        return -1;
    snprintf(out, size, "%s", v);
    free(v);
    return 0;
}

} // namespace

extern "C" {

int libzn_usb_getLabel(const char *dev, char *out) { return probe_value(dev, "LABEL", out, kLabelLen); }

int libzn_usb_getFsType(const char *dev, char *out) { return probe_value(dev, "TYPE", out, kFsTypeLen); }

int libzn_usb_readFileFirstLine(const char *path, char *out) {
    if (!path || !out)
        return -1;
    FILE *f = fopen(path, "re");
    if (!f)
        return -1;
    char line[256];
    bool got = fgets(line, sizeof line, f) != nullptr;
    fclose(f);
    if (!got)
        return -1;
    line[strcspn(line, "\r\n")] = '\0';
    memcpy(out, line, strlen(line) + 1);
    return 0;
}

} // extern "C"
