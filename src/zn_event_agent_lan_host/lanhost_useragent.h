// The HTTP user-agent module's channel (netlink protocol 31): device types
// from the User-Agent texts it reports, and the DHCP options of clients it
// reports, kept until the host's first IPv4 synchronisation.
#pragma once

#include <event2/event.h>

#include <cstddef>
#include <cstdint>

#include "lanhost_table.h"

constexpr int kHttpAgentProtocol = 31;    // the module's netlink protocol
constexpr size_t kUaReadSize = 1024;      // one read of the tracker's callback
constexpr size_t kUaThreadReadSize = 512; // one read of the stand-alone reader

void zn_event_lanhost_httpSockRead_cb(evutil_socket_t fd, short what, void *arg);

// One datagram as the tracker reads it: DHCP option reports update their
// MAC's dhcpRequestEntry; User-Agent reports of types 1 to 3 go out as event
// 1601 with code 32 and lower-case MAC text. The type is found once per
// datagram. An NLMSG_ERROR or a bad length ends the datagram.
void lanhost_ua_walk(const uint8_t *bytes, size_t len);

// One datagram as the stand-alone reader reads it: every report is a
// User-Agent report, types 1, 2, 3, 5 and 4 are tried in that order, and the
// event carries code 64 and upper-case MAC text.
void lanhost_ua_thread_walk(const uint8_t *bytes, size_t len);

// Takes the fields of a DHCP option report "KEYWORD,k=IP,k=NAME,k=ALT" (len
// bytes of text, a zero ending it early) into entry by position: the value
// behind the first '=' of fields 2 to 4, the name converted from gb2312.
// Empty fields between commas don't count; a missing field, or one without
// '=', leaves its entry field as it was; overlong values are cut to fit.
void lanhost_dhcp_option_update(dhcpRequestEntry *entry, const char *text, size_t len);

// "insmod" or "rmmod" of the module, output discarded, result not read.
void lanhost_ua_module_cmd(const char *verb);
// Sends the module the greeting that makes it report to this process's
// port id. -1 when the greeting can't be allocated.
int lanhost_ua_greet(int fd);

// Required by the design, not called yet: the blocking form of the channel,
// a thread entry.
void *zn_event_lanhost_httpThread(void *arg);
