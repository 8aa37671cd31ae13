// Payment rules per device and type, the decision that a set of them is a payment, and its alert (1012). The lock is held.
#ifndef APPIDENT_PUSHES_PAYMENT_H
#define APPIDENT_PUSHES_PAYMENT_H

#include "appident/model/records.h"

// Notes one payment rule hit; appid is the packed word.
void add_app_payment_record(device_record *dev, u32 appid, u32 ruleid);
void add_app_payment_rule_record(payment_set *set, u32 appid, u32 ruleid);
// Two rules within 5 seconds make a payment. One time stamp serves all devices, because the two globals are all that there is:
// of two devices that pay in the same seconds one may be missed.
void App_store_pay(device_record *dev, u32 appid, u32 ruleid);
void weChat_red_pay(device_record *dev, u32 appid, u32 ruleid);
// Drops rule hits older than 30 seconds. Returns 0.
int clear_timeout_payment_rules(device_record *dev);
// Decides for each set whether its rule hits are a payment, and pushes what is due. Returns 0.
int push_pay_alert(device_record *dev);

#endif
