// What the router's inspection plug-ins share: the request ids, the decoding of accounting messages, MAC texts, LAN settings.
//
// No lock is needed: everything works on its arguments, and g_lan_cfg is written once before the threads start.
#ifndef COMMON_SEC_PLG_COMMON_H
#define COMMON_SEC_PLG_COMMON_H

#include "common/mac_text.h"
#include "igd/igd_types.h"

struct nlmsghdr;

// One numbering for all plug-ins; ids 0 to 5 belong to others.
enum request_id : unsigned int {
    APPIDENT_GET_CUR_DEVICE_APP = 6,
    APPIDENT_GET_CUR_DEVICE_APP_FOR_ROM,
    APPIDENT_GET_CUR_DEVICES_APP,
    APPIDENT_GET_CUR_DEVICES_APP_FOR_ROM,
    APPIDENT_GET_DEVICE_APP_RECORD, // reserved, never answered
    APPIDENT_SET_DEVICE_APP_LIST_USE_TIME,
    APPIDENT_GET_DEVICE_APP_LIST_USE_TIME,
    APPIDENT_SET_PAYMENT_CONFIG,
    APPIDENT_GET_PAYMENT_CONFIG,
};

// A decoded accounting message; the caller zeroes it before decoding. Addresses are dotted text, counts are bytes.
struct app_data {
    u32 appid; // packed application word
    u32 ruleid;
    u32 upperlimit;
    char req_src_ip[16];
    char req_dst_ip[16];
    char req_proto[4];
    u32 req_bytes;
    char rep_src_ip[16];
    char rep_dst_ip[16];
    char rep_proto[4];
    u32 rep_bytes;
};

// Netlink message type (low byte) of an accounting message.
constexpr int IPCTNL_MSG_CT_DPI_ACCT = 11;

extern nos_lan_cfg g_lan_cfg;

// Reads the LAN settings into g_lan_cfg; -1 when the platform has none.
int plugin_common_init(void);
// Decodes the whole message (nlmsg_len bytes long) into out as far as it got; -1 when an attribute is missing.
int process_app_acct_message(struct nlmsghdr *nlh, app_data *out);
// The MAC as "00-1A-2B-3C-4D-5E" in buf; null, with nothing written, when len < 18 or the address (network order) is unknown.
char *get_mac_str_by_ip(u32 ip, char *buf, int len);
char *get_mac_str_by_mac(const unsigned char *mac, char *buf, int len);

#endif
