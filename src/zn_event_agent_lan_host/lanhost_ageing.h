// The two periodic jobs on the bridge's MAC addresses: the ageing sweep that
// probes silent hosts, and the poll of the kernel's MAC filter.
#pragma once

#include <cstddef>
#include <cstdio>

#include "libzn.h"

constexpr int kBridgeRecords = 128;
constexpr uint32_t kSilentHundredths = 600; // a host silent this long is probed
constexpr const char *kMacfilterStat = "/proc/macfilter/stat";
constexpr const char *kMacfilterTable = "/proc/macfilter/table";
constexpr size_t kMacfilterColumn = 100; // lines of at most 99 characters

int zn_event_lanhost_handle_macAging();
// The sweep over records as the bridge gave them.
void zn_event_lanhost_macAging_sweep(const brctl_fdb_entry_t *records, size_t count);
void zn_event_lanhost_handle_macfilter();

// "/proc/macfilter/stat" read past its heading line, or null without the file.
FILE *lanhost_macfilter_stat_open();
// The next line's MAC text and count (0 when the line has none); false at the
// end of the file. Lines without a MAC text are passed over.
bool lanhost_macfilter_stat_next(FILE *f, char (&mac)[kMacfilterColumn], int *count);
