// The router's device service: which devices are on line, and what role each has.
//
// Each call asks the service afresh; nothing is cached. May be called with or without the lock.
#ifndef APPIDENT_ROUTER_DEVICE_SERVICE_H
#define APPIDENT_ROUTER_DEVICE_SERVICE_H

#include "common/guards.h"

constexpr const char *online_devices_path = "/app/devices/webs/getdeviceslist.cgi";
constexpr const char *offline_devices_path = "/app/devices/webs/get_offline_dev_list.cgi";
constexpr const char *catalogue_path = "/app/ib_manager/webs/get_user_apps.cgi";

// Asks a service. The parsed answer when the call succeeded, "err_no" reads as 0 and "data" is an array; else null. The array
// is *data, owned by the tree.
json_tree ask_service(const char *path, const char *query, cJSON **data);
// The same for a text that the caller already has.
json_tree parse_service_answer(const char *answer, cJSON **data);
// The on-line list, reduced to the device of that MAC text.
json_tree ask_online_device(const char *mac_str, cJSON **data);

// A service's integer: a JSON string read as a decimal number. False when it is missing or no string.
bool service_integer(const cJSON *object, const char *key, long *value);

// The device's role; -1 for a missing MAC text, -3 when neither the on-line nor the off-line list knows it.
int get_device_role(const char *mac_str);

#endif
