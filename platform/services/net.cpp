// The bridge's forwarding table and the wireless index maps.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "libzn.h"

namespace {

// External SSIDs 1-4 belong to radio 1 (2.4 GHz), 5-8 to radio 2 (5 GHz);
// the internal index of an SSID is its instance in the Wi-Fi SSID table.
constexpr int kSsidsPerRadio = 4;
constexpr int kRadios = 2;
constexpr uint32_t kSsidOid = 399;

} // namespace

extern "C" {

int brctl_getmacs(const char *bridge, brctl_fdb_entry_t *records, int max) {
    static_assert(sizeof(brctl_fdb_entry_t) == 16, "the kernel's forwarding record is 16 bytes");
    if (!bridge || !records || max <= 0 || strchr(bridge, '/'))
        return -1;
    char path[128];
    snprintf(path, sizeof path, "/sys/class/net/%s/brforward", bridge);
    int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return -1;
    size_t want = size_t(max) * sizeof *records, got = 0;
    while (got < want) {
        ssize_t n = read(fd, reinterpret_cast<char *>(records) + got, want - got);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        got += size_t(n);
    }
    close(fd);
    return int(got / sizeof *records);
}

int zns_wlan_get_internal_ssididx_by_ext_ssididx(zns_xml_handle_t *handle, int ext) {
    if (!handle || ext < 1 || ext > kSsidsPerRadio * kRadios)
        return -1;
    zns_ia_t ia = znsXml_ConstructIAValue(__FILE__, __func__, __LINE__, 1, "%d", ext);
    return znsXml_GetObjectByOID(handle, kSsidOid, ia, 1) ? ext : -1;
}

int zns_wlan_internal_ssididx_to_radioidx(int index) {
    if (index < 1 || index > kSsidsPerRadio * kRadios)
        return -1;
    return (index - 1) / kSsidsPerRadio + 1;
}

} // extern "C"
