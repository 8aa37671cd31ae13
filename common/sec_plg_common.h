// What the router's inspection plug-ins share: the request ids, the decoding of accounting messages, MAC texts, LAN settings.
//
// No lock is needed: everything works on its arguments, and g_lan_cfg is written once before the threads start.
#ifndef COMMON_SEC_PLG_COMMON_H
#define COMMON_SEC_PLG_COMMON_H

#include "common/accounting_message.h"
#include "common/mac_text.h"
#include "common/request_ids.h"
#include "igd/igd_types.h"

extern nos_lan_cfg g_lan_cfg;

// Reads the LAN settings into g_lan_cfg; -1 when the platform has none.
int plugin_common_init(void);
// The MAC as "00-1A-2B-3C-4D-5E" in buf; null, with nothing written, when len < 18 or the address (network order) is unknown.
char *get_mac_str_by_ip(u32 ip, char *buf, int len);
char *get_mac_str_by_mac(const unsigned char *mac, char *buf, int len);

#endif
