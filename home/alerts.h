// The table of alerts: a limit passed, a break due, an app of class 4 in use, a payment made.
#ifndef HOME_ALERTS_H
#define HOME_ALERTS_H

#include <stdint.h>

// As stored; the number is the push's code.
enum alert_kind {
    alert_payment = 1012,   // class: kind of payment (1 Alipay, 2 WeChat, 3 QQ, 4 Apple, 0 another); amount: epoch second
    alert_limit = 1015,     // class: 1 to 3; amount: minutes that the alert stands for
    alert_break = 1021,     // app; amount: minutes of the session
    alert_first_use = 1022, // app; class 4
};
// "payment", "limit", "break", "first_use"; "" for another number.
const char *alert_name(int64_t kind);

#endif
