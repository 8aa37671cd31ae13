// Limit alerts: addiction (1015), eye protection (1021), daydayup (1022). The lock is held.
//
// Counters are raised before a push, so that a failed push is not repeated until the next multiple of the limit.
#ifndef APPIDENT_PUSHES_PUSH_ALERTS_H
#define APPIDENT_PUSHES_PUSH_ALERTS_H

#include "appident/model/records.h"

// 1 when a counted entry of the limit holds the app with checked set, else 0.
int app_in_limit_array(u32 app_id, use_time_limit *utl);
// Every alert that is due for the device, payments first. Always -1.
int push_app_alert(device_record *dev);
// Sets the classes' counters as if the alerts for the use so far had been sent, and pushes nothing. Always -1.
int pre_push_app_alert(device_record *dev);
// -1 refused, 0 otherwise; sum_time in minutes.
int push_addiction_alert(device_record *dev, int class_type_idx, u32 sum_time);
int push_eye_protection_alert(device_record *dev, int class_type_idx, app_ident_record *app);
// 0 when pushed, else the negative reason.
int push_daydayup_alert(device_record *dev, app_ident_record *app);

#endif
