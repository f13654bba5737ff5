// The ageing sweep over the bridge's forwarding table and the MAC filter poll.
#include "lanhost_ageing.h"

#include <cctype>
#include <cstdlib>
#include <cstring>

#include "agent_log.h"
#include "lanhost.h"
#include "lanhost_arp.h"
#include "lanhost_neighbor.h"

namespace {

constexpr const char *kMacfilterStat = "/proc/macfilter/stat";
constexpr const char *kMacfilterTable = "/proc/macfilter/table";

} // namespace

void zn_event_lanhost_macAgeingDetect_timer_cb(evutil_socket_t, short, void *) {
    LANHOST_LOG(3, "macAgeingDetect timer call back");
    zn_event_lanhost_handle_macAging();
}

int zn_event_lanhost_handle_macAging() {
    brctl_fdb_entry_t records[kBridgeRecords];
    const int count = brctl_getmacs(kLanBridge, records, kBridgeRecords);
    if (count > 0)
        lanhost_mac_ageing_sweep(records, size_t(count));
    return 0;
}

void lanhost_mac_ageing_sweep(const brctl_fdb_entry_t *records, size_t count) {
    for (size_t i = 0; i < count; i++) {
        const brctl_fdb_entry_t &r = records[i];
        char mac[kMacTextSize];
        lanhost_mac_text(r.mac_addr, false, mac);
        if (r.ageing_timer_value < kSilentHundredths)
            continue;
        lhost *host = list_find_lhost(mac);
        if (!host) {
            LANHOST_LOG_AS(zn_event_lanhost_handle_macAging, 3, "lhost=NULL mac=%s", mac);
            continue;
        }
        LANHOST_LOG_AS(zn_event_lanhost_handle_macAging, 3, "mac=%s, ageing=%d", mac, int(r.ageing_timer_value / 100));
        if (!host->active) {
            LANHOST_LOG_AS(zn_event_lanhost_handle_macAging, 3, "inactive, jump it mac=%s", mac);
            continue;
        }
        if (host->arpState == kArpProbing) {
            LANHOST_LOG_AS(zn_event_lanhost_handle_macAging, 3, "arp already send jump mac=%s", mac);
            continue;
        }
        zn_event_lanhost_arpping(host);
    }
}

void zn_event_lanhost_macfilter_timer_cb(evutil_socket_t, short, void *) { zn_event_lanhost_handle_macfilter(); }

FILE *lanhost_macfilter_stat_open() {
    FILE *f = fopen(kMacfilterStat, "r");
    if (!f)
        return nullptr;
    char heading[kMacfilterLine];
    if (!fgets(heading, sizeof heading, f)) {
        fclose(f);
        return nullptr;
    }
    return f;
}

bool lanhost_macfilter_stat_next(FILE *f, char (&mac)[kMacfilterLine], int *count) {
    char line[kMacfilterLine];
    while (fgets(line, sizeof line, f)) {
        ByteCursor rest(line, strlen(line)), column[2];
        if (!rest.field(' ', &column[0]))
            continue;
        rest.field(' ', &column[1]);
        lanhost_copy_text(mac, column[0]);
        *count = int(lanhost_decimal(column[1]));
        return true;
    }
    return false;
}

void zn_event_lanhost_handle_macfilter() {
    FILE *f = lanhost_macfilter_stat_open();
    if (!f)
        return;
    char mac[kMacfilterLine];
    int count;
    while (lanhost_macfilter_stat_next(f, mac, &count)) {
        for (char *c = mac; *c; c++)
            *c = char(toupper(static_cast<unsigned char>(*c)));
        if (count < 1)
            continue;
        // The text goes into a shell command: only a MAC text may.
        if (!lanhost_mac_str_is_valid(mac)) {
            LANHOST_LOG(1, "not a mac address: %s", mac);
            continue;
        }
        char cmd[255];
        snprintf(cmd, sizeof cmd, "echo FLG mac:%s > %s", mac, kMacfilterTable);
        libzn_dosystem(cmd);
        if (auto *scratch = static_cast<lhost *>(calloc(1, sizeof(lhost)))) {
            lanhost_copy_text(scratch->macAddr, mac);
            lanhost_macfilter_notify(scratch, kMacfilterFiltered);
            free(scratch);
        }
    }
    fclose(f);
}
