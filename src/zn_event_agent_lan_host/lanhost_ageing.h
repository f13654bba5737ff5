// The two periodic jobs on the bridge's MAC addresses: the ageing sweep that
// probes silent hosts, and the poll of the kernel's MAC filter.
#pragma once

#include <event2/event.h>

#include <cstddef>
#include <cstdio>

#include "libzn.h"

constexpr int kBridgeRecords = 128;
constexpr uint32_t kSilentHundredths = 600; // a host silent this long is probed
// Lines of the MAC filter's files and of "brctl showmacs": at most 99 characters.
constexpr size_t kMacfilterLine = 100;

void zn_event_lanhost_macAgeingDetect_timer_cb(evutil_socket_t fd, short what, void *arg);
int zn_event_lanhost_handle_macAging();
// The sweep over records as the bridge gave them.
void lanhost_mac_ageing_sweep(const brctl_fdb_entry_t *records, size_t count);

void zn_event_lanhost_macfilter_timer_cb(evutil_socket_t fd, short what, void *arg);
void zn_event_lanhost_handle_macfilter();

// "/proc/macfilter/stat" read past its heading line, or null without the file.
FILE *lanhost_macfilter_stat_open();
// The next line's MAC text and count (0 when the line has none); false at the
// end of the file. Lines without a MAC text are passed over.
bool lanhost_macfilter_stat_next(FILE *f, char (&mac)[kMacfilterLine], int *count);
