// The switches of a device's payment alerts, and what request 13 does with a record of them.
#ifndef PLATFORM_LINUX_CLIENT_PAYMENT_SWITCHES_H
#define PLATFORM_LINUX_CLIENT_PAYMENT_SWITCHES_H

#include "igd/igd_types.h"

struct payment_switch {
    const char *key;
    const char *meaning;
    u32 appident_payment_notify_st::*field;
};
constexpr payment_switch payment_switches[] = {
    {"enable", "payment alerts as a whole", &appident_payment_notify_st::enable},
    {"weixin", "WeChat Pay", &appident_payment_notify_st::weixin},
    {"alipay", "Alipay", &appident_payment_notify_st::alipay},
    {"qqpay", "QQ Pay", &appident_payment_notify_st::qqpay},
    {"applepay", "Apple Pay", &appident_payment_notify_st::applepay},
};
// Actions of request 13.
enum payment_action : unsigned int { switches_as_given = 1, switches_all_off = 3 };

#endif
