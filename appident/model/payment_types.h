// The payment services that are watched, in the order of a device's payment sets.
#ifndef APPIDENT_MODEL_PAYMENT_TYPES_H
#define APPIDENT_MODEL_PAYMENT_TYPES_H

#include "appident/model/records.h"

struct payment_type_row {
    PAYMENT_TYPE app_id;
    const char *config_key; // switch in the configuration file
    u32 pay_code;           // the push service's own number for it
};

inline constexpr payment_type_row payment_type_rows[payment_types] = {
    {WECHAT_PAY, "weixin", 2},
    {ALI_PAY, "alipay", 1},
    {QQ_PAY, "qqpay", 3},
    {APPLE_PAY, "applepay", 4},
};

// The master switch of the configuration file.
constexpr const char *payment_enable_key = "enable";

#endif
