// Records exchanged with the router's platform library.
//
// Their layouts are the platform's: fields, order and sizes are fixed. Addresses are in network order, MACs are six raw bytes,
// texts are NUL-terminated unless said otherwise.
#ifndef IGD_TYPES_H
#define IGD_TYPES_H

#include <assert.h>
#include <netinet/in.h>
#include <stdint.h>
#include <time.h>

typedef uint32_t u32;
typedef uint64_t u64;

// The router's own LAN interface.
struct nos_lan_cfg {
    unsigned char mac[6];
    struct in_addr ip;
    struct in_addr mask;
};
static_assert(sizeof(struct nos_lan_cfg) == 16, "LAN settings are 16 bytes");

// Host-name look-up. The caller sets key, action and mac; the library fills the rest.
struct nos_hostname_cfg {
    int key;
    int action;
    struct in_addr ip;
    unsigned char mac[6];
    char name[33];
    char manu_name[33];
    char dev_label[33];
    char s_name[33];
    char logo_big[129];
    char logo_small[129];
    char dev_type[65];
    char brand[65];
    char model[65];
    char model_logo[65];
    char vendor[65];
    char vendor_logo[65];
    char dev_small[65];
    char dev_big[65];
    char ua[64];
    int os_type;
};

// One device-status record. timestamp is a length in seconds for status 0, an epoch second otherwise.
struct app_info_sync_st {
    u32 app_id;
    u32 class_type;
    char app_status;
    time_t timestamp;
    unsigned char mac[6];
};

// The payment switches of one device, each 0 or 1; mac is its MAC text.
struct appident_payment_notify_st {
    char mac[20];
    u32 enable, weixin, alipay, qqpay, applepay;
};
static_assert(sizeof(struct appident_payment_notify_st) == 40, "payment switches are 40 bytes");

#endif
