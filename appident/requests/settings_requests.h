// Requests 11 to 14: use-time limits and payment switches, stored and read. Each takes the lock itself where it needs it. 0, or
// -1 on failure.
#ifndef APPIDENT_REQUESTS_SETTINGS_REQUESTS_H
#define APPIDENT_REQUESTS_SETTINGS_REQUESTS_H

#include "igd/igd_types.h"

// Stores limits for a device, as a new file or merged into the existing one, and makes sure that the device is tracked. Holds
// the lock while it merges, not while it registers.
int save_config(const char *mac_str, const char *config);

// Stores the limits and applies them. 0 with nothing stored for a device of role 0, whose tracking is ended instead.
int set_device_app_list_use_time(const char *mac_str, char *buff, unsigned int *buff_len);
// *buff_len: capacity in, full length of the answer out, 0 when the device has no file. Only for devices of role 1.
int get_device_app_list_use_time_json(const char *mac_str, char *buff, unsigned int *buff_len);
// action 1 or 2 stores the switches, 3 switches all off, any other does nothing. -1 only for a missing record.
int set_payment_config(appident_payment_notify_st *switches, unsigned int action);
// Fills the switches of switches->mac; num must be 1. -1 for a device without a file.
int get_payment_config(appident_payment_notify_st *switches, unsigned int num);

#endif
