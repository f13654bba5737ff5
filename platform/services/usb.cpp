// USB storage queries through libblkid, on the real device node.
#include <blkid.h>

#include <cstdio>
#include <cstring>

#include "libzn.h"

namespace {

constexpr size_t kLabelLen = 64;
constexpr size_t kFsTypeLen = 8;

// Every query probes the device afresh: a cache could answer for the
// device that an earlier node of the same name stood for.
int probe_value(const char *dev, const char *name, char *out, size_t size) {
    if (!dev || !out)
        return -1;
    blkid_probe pr = blkid_new_probe_from_filename(dev);
    if (!pr)
        return -1;
    blkid_probe_enable_superblocks(pr, 1);
    blkid_probe_set_superblocks_flags(pr, BLKID_SUBLKS_LABEL | BLKID_SUBLKS_TYPE);
    const char *value = nullptr;
    int rc = blkid_do_safeprobe(pr) == 0 && blkid_probe_lookup_value(pr, name, &value, nullptr) == 0 ? 0 : -1;
    if (rc == 0)
        snprintf(out, size, "%s", value);
    blkid_free_probe(pr);
    return rc;
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
