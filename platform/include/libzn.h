/* Gateway system services: declarations of libzn. */
#ifndef LIBZN_H
#define LIBZN_H

#include <stdint.h>
#include "znsutils.h"

#ifdef __cplusplus
extern "C" {
#endif

#define LIBZN_PROVINCE_LEN    32
#define LIBZN_BOARD_VALUE_LEN 64

/* One forwarding entry of a bridge, as the kernel's brforward file has it. */
typedef struct brctl_fdb_entry {
    uint8_t mac_addr[6];
    uint8_t port_no;
    uint8_t is_local;
    uint32_t ageing_timer_value; /* hundredths of a second since last seen */
    uint8_t port_hi;
    uint8_t pad0;
    uint16_t unused;
} brctl_fdb_entry_t;

/* Board settings, each 0 or -1 unless told. */
int libzn_sys_getProvince(char *buf); /* buf of LIBZN_PROVINCE_LEN */
int libzn_sys_getPonMode(void);       /* configured PON mode, -1 unknown */
int libzn_sys_getUsbNum(void);        /* number of USB ports */
int libzn_board_config_content_read(const char *section, const char *key, char *buf); /* LIBZN_BOARD_VALUE_LEN */

/* Outward effects. */
int libzn_sys_led(int state);
int libzn_sys_turnOffLed(uint8_t off); /* 1 all LEDs off, 0 on */
int zns_cuc_set_sleep_mode(uint8_t enable);
int zns_cmcc_timedTask_handler(int index);   /* 0 on success */
int zns_cmcc_deviceLimit_handler(int index); /* 0 on success */

/* Shell commands, done on return. The exit status, or -1. */
int libzn_dosystem(const char *cmd);
int zn_do_cmd(const char *cmd);

/* USB storage: out receives NUL-terminated text, at most 64 bytes for the
 * label and 8 for the file system type. */
int libzn_usb_getLabel(const char *dev, char *out);
int libzn_usb_getFsType(const char *dev, char *out);
/* First line of the file without its line end, at most 255 bytes; out stays as it was without one. */
int libzn_usb_readFileFirstLine(const char *path, char *out);

/* Wireless indexes: the internal SSID index (above 0 when the SSID exists),
 * and the radio (1 or 2, its instance) of an internal index, -1 when out of range. */
int zns_wlan_get_internal_ssididx_by_ext_ssididx(zns_xml_handle_t *handle, int ext);
int zns_wlan_internal_ssididx_to_radioidx(int index);

/* The bridge's forwarding table: up to max records; the count, or -1. */
int brctl_getmacs(const char *bridge, brctl_fdb_entry_t *records, int max);

/* Platform debug log: callers test libzn_DbgLevel before they print. */
extern int libzn_DbgLevel;
void libzn_logPrint(const char *tag, const char *file, const char *func, int line, const char *fmt, ...)
    __attribute__((format(printf, 5, 6)));

#ifdef __cplusplus
}
#endif
#endif
