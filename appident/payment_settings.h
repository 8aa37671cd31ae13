// Payment switches: from a device's configuration file into its record, and back. The lock is held.
#ifndef APPIDENT_PAYMENT_SETTINGS_H
#define APPIDENT_PAYMENT_SETTINGS_H

#include "appident/records.h"

// 0 when the file held the device's settings, else -1, also after defaults were applied.
int load_device_pay_config(device_record *dev);
int save_device_pay_config(const char *mac_str, int enable, int weixin, int alipay, int qqpay, int applepay);
int update_device_pay_config(const char *mac_str, int enable, int weixin, int alipay, int qqpay, int applepay,
                             const char *config_path);

#endif
