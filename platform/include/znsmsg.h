/* Gateway event bus and module log: declarations of libznsmsg. */
#ifndef ZNSMSG_H
#define ZNSMSG_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define ZNS_EVENT_LAN_LINK_UP             100
#define ZNS_EVENT_LAN_LINK_DOWN           101
#define ZNS_EVENT_SSID_LINK_UP            102
#define ZNS_EVENT_SSID_LINK_DOWN          103
#define ZNS_EVENT_PON_MODE_CHANGE         199
#define ZNS_EVENT_WAN_LINK_UP             200
#define ZNS_EVENT_WAN_LINK_DOWN           201
#define ZNS_EVENT_BTN_REBOOT              300
#define ZNS_EVENT_USB_ADD                 1300
#define ZNS_EVENT_USB_REMOVE              1301
#define ZNS_EVENT_TEMP_UPDATE_MAC_DEVTYPE 1601

#define ZNS_EVENT_PAYLOAD_MAX 1024

/* Delivers the event to every current subscriber. Returns the number of
 * subscribers reached, or -1 when it could not be delivered (bad payload,
 * no bus, or a subscriber that exists but did not take it). */
int zns_eventNotify(uint32_t event, uint32_t code, const char *payload);

/* Subscription, for the bus's own tools: a descriptor to poll, and the next
 * event read from it (payload NUL-terminated, *has_payload 0 for a null one).
 * 0 or -1. */
int zns_eventSubscribe(void);
int zns_eventReceive(int fd, uint32_t *event, uint32_t *code, char *payload, size_t size, int *has_payload);

/* Module log: one line on standard error per call that passes the module's
 * threshold (a line passes when level <= threshold; level 0 always passes).
 * The threshold is that of set_log_level, or the number that
 * "zncli log set MODULE LEVEL" put in force at run time. */
int zns_registerModule(const char *name);
int set_log_level(const char *name, int level);
void zns_log_print(const char *file, const char *func, int line, int level, const char *fmt, ...)
    __attribute__((format(printf, 5, 6)));

#ifdef __cplusplus
}
#endif
#endif
