// Requests 11 to 14: use-time limits and payment switches, stored and read. Each takes the lock itself. 0, or -1 on failure.
#ifndef APPIDENT_SETTINGS_REQUESTS_H
#define APPIDENT_SETTINGS_REQUESTS_H

#include "igd/igd_types.h"

int set_device_app_list_use_time(const char *mac_str, char *buff, unsigned int *buff_len);
int get_device_app_list_use_time_json(const char *mac_str, char *buff, unsigned int *buff_len);
int set_payment_config(appident_payment_notify_st *switches, unsigned int action);
int get_payment_config(appident_payment_notify_st *switches, unsigned int num);

#endif
