// Use-time limits: from a device's configuration file into its record, and the app catalogue that keeps them complete.
//
// The lock is held.
#ifndef APPIDENT_SETTINGS_USE_TIME_LIMITS_H
#define APPIDENT_SETTINGS_USE_TIME_LIMITS_H

#include "appident/model/records.h"

// 0 when the limits were read.
int load_device_config(device_record *dev);
// 0 when the catalogue was fetched, whether or not anything is new.
int update_new_app_ids(device_record *dev);

#endif
