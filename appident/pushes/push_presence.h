// Presence: which app a device uses, as pushes (1023) and as records for the device-status service. The lock is held.
#ifndef APPIDENT_PUSHES_PUSH_PRESENCE_H
#define APPIDENT_PUSHES_PUSH_PRESENCE_H

#include "appident/model/records.h"

// App j of the device came into use / went out of use. -1 when the device's role is below 1, else 0.
int push_online_app(const device_record &dev, int j);
int push_offline_app(const device_record &dev, int j);
// One push with everything in use on all devices. Returns 0.
int push_using_app(void);

enum app_status : int { app_status_ended = 0, app_status_started = 1, app_status_behavior = 2 };
// The device-status service's result, -1 for a missing record.
int notify_app_status(device_record *dev, app_ident_record *app, int status);

#endif
