// Requests 6 to 9: the apps in use now, on one device or a list of devices.
//
// Each takes the lock for the whole walk. A text longer than the buffer is cut while *buff_len is its full length.
#ifndef APPIDENT_REQUESTS_CURRENT_APPS_H
#define APPIDENT_REQUESTS_CURRENT_APPS_H

// Apps of more than one started minute; *buff_len 0 and result 0 when the device is not active.
int get_cur_device_time_axis_app_json(const char *mac_str, char *buff, unsigned int *buff_len);
// Apps of any length.
int get_cur_device_time_axis_app_for_rom_json(const char *mac_str, char *buff, unsigned int *buff_len);
// The same for {"device":[MAC text, ...]}.
int get_cur_devices_time_axis_app_json(const char *json_devices, char *buff, unsigned int *buff_len);
int get_cur_devices_time_axis_app_for_rom_json(const char *json_devices, char *buff, unsigned int *buff_len);

#endif
