// What an accounting hit does: finds the device, opens and feeds sessions, moves the time axis.
#ifndef APPIDENT_TRACKING_APP_HITS_H
#define APPIDENT_TRACKING_APP_HITS_H

#include "appident/model/records.h"
#include "common/sec_plg_common.h"

// One decoded message, whatever it holds. Takes the lock.
void handle_app_ident_event(app_data *ad);
// The lock is held.
void add_app_record(device_record *dev, app_data *ad);
// 1 when the app is checked in the device's game class (1), else 0. The lock is held.
int appid_is_game(device_record *dev, u32 app_id);

#endif
