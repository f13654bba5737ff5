// Fuzz target: the same bytes as each small file the tracker reads: the
// gateway's base MAC file, the MAC filter's stat file (after its heading)
// and each line of the wired filter table.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "lanhost.h"
#include "lanhost_ageing.h"
#include "lanhost_neighbor.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const auto *text = reinterpret_cast<const char *>(data);
    char base[kMacTextSize];
    if (lanhost_base_mac_parse(text, size, base) && strlen(base) >= kMacTextSize)
        abort();
    FILE *f = size ? fmemopen(const_cast<uint8_t *>(data), size, "r") : nullptr;
    if (!f)
        return 0;
    char line[kMacfilterLine];
    int count;
    while (fgets(line, sizeof line, f))
        lanhost_macfilter_line_names(line, "02:00:00:00:10:01", "eth1");
    rewind(f);
    if (fgets(line, sizeof line, f))
        while (lanhost_macfilter_stat_next(f, line, &count))
            if (strlen(line) >= sizeof line)
                abort();
    fclose(f);
    return 0;
}
