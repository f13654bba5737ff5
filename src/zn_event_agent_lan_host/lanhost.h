// The LAN host tracker: one thread around one libevent base, with one store
// handle for its life. Everything here is touched by that thread alone.
#pragma once

#include <event2/event.h>

#include "lanhost_addr.h"
#include "znsutils.h"

constexpr const char *kLanBridge = "br0";
constexpr const char *kHostsPath = "InternetGatewayDevice.LANDevice.1.Hosts";

// Thread entry: opens the store handle, sets up the sockets and timers and
// runs the event loop, which in normal running never ends; it returns when a
// step of that set-up fails.
void *zn_event_lanhost_thread(void *arg);

extern zns_xml_handle_t *storeHandle;
extern event_base *lanhostEventBase;
extern char gatewayBaseMac[kMacTextSize];

// Reads "/etc/macAddrBase" into gatewayBaseMac: 0, or -1 and it stays as it was.
int getGatewayBaseMacaddr();
// The start of that file's first line, up to 17 characters as "%17[^\n]"
// reads it (a NUL ends the text early); false when the line is empty.
bool lanhost_base_mac_parse(const char *text, size_t len, char (&mac)[kMacTextSize]);

// Periodic timers of the thread itself.
void zn_event_lanhost_save_flash_timer_cb(evutil_socket_t fd, short what, void *arg);
void zn_event_lanhost_log_level_cb(evutil_socket_t fd, short what, void *arg);
