// Payment switches: from a device's configuration file into its record, and back. The lock is held, unless said otherwise.
#ifndef APPIDENT_SETTINGS_PAYMENT_SETTINGS_H
#define APPIDENT_SETTINGS_PAYMENT_SETTINGS_H

#include "appident/model/records.h"

// 0 when the file is the device's own, -1 otherwise. Where the file (of a device with a role) or its "payment" is missing,
// everything is switched on and that is stored. Drops pending payment rules.
int load_device_pay_config(device_record *dev);
// Creates or merges the switches, each 0 or 1. 0 with nothing stored for a device of role 0; -1 on failure.
int save_device_pay_config(const char *mac_str, int enable, int weixin, int alipay, int qqpay, int applepay);
// The two steps of save_device_pay_config, for a caller that must not hold the lock while the platform's services work. First,
// without the lock: true, with a log line, for a device of role 0, which keeps no settings.
bool keeps_no_settings(const char *mac_str);
// Then the file and the record; afterwards, again without the lock, save_param() when there is something to commit.
struct pay_stored {
    int result; // 0 or -1
    bool to_commit;
};
pay_stored store_pay_config(const char *mac_str, int enable, int weixin, int alipay, int qqpay, int applepay);
// Sets them in the record of an active device, then in the existing file at the path.
int update_device_pay_config(const char *mac_str, int enable, int weixin, int alipay, int qqpay, int applepay,
                             const char *path);

#endif
