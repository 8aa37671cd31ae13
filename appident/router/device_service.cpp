#include "appident/router/device_service.h"

#include "common/log.h"
#include "igd/igd_lib.h"

#include <stdio.h>
#include <string.h>

json_tree parse_service_answer(const char *answer, cJSON **data)
{
    json_tree root(cJSON_Parse(answer));
    long error = 0;
    if (!root || !service_integer(root.get(), "err_no", &error) || error != 0)
        return nullptr;
    *data = cJSON_GetObjectItem(root.get(), "data");
    if (!cJSON_IsArray(*data))
        return nullptr;
    return root;
}

json_tree ask_service(const char *path, const char *query, cJSON **data)
{
    char *raw = nullptr;
    int result = call_cgi(path, query, &raw);
    heap_text answer(raw);
    if (result == 0 || !answer)
        return nullptr;
    return parse_service_answer(answer.get(), data);
}

json_tree ask_online_device(const char *mac_str, cJSON **data)
{
    char query[256];
    snprintf(query, sizeof(query), "mac=%s", mac_str);
    return ask_service(online_devices_path, query, data);
}

bool service_integer(const cJSON *object, const char *key, long *value)
{
    const cJSON *item = cJSON_GetObjectItem(object, key);
    if (!cJSON_IsString(item))
        return false;
    *value = atol(item->valuestring);
    return true;
}

namespace {

bool online_role(const char *mac_str, int *role)
{
    cJSON *data = nullptr;
    json_tree answer = ask_online_device(mac_str, &data);
    long value = 0;
    if (!answer || !service_integer(cJSON_GetArrayItem(data, 0), "role", &value))
        return false;
    *role = static_cast<int>(value);
    if (*role == 0)
        url_check_log(0, "[appident] get_device_role  -> %s: role [%d]", mac_str, *role);
    return true;
}

bool offline_role(const char *mac_str, int *role)
{
    cJSON *data = nullptr;
    json_tree answer = ask_service(offline_devices_path, "", &data);
    if (!answer)
        return false;
    const cJSON *device = nullptr;
    cJSON_ArrayForEach(device, data) {
        const cJSON *mac = cJSON_GetObjectItem(device, "mac");
        if (!cJSON_IsString(mac) || strcmp(mac->valuestring, mac_str) != 0)
            continue;
        long value = 0;
        if (!service_integer(device, "role", &value))
            return false;
        *role = static_cast<int>(value);
        url_check_log(0, "[appident] get_offline_device_role -> %s: role [%d]", mac_str, *role);
        return true;
    }
    return false;
}

} // namespace

int get_device_role(const char *mac_str)
{
    if (!mac_str || !*mac_str) {
        url_check_log(0, "[appident] %s get_device_role -1 mac_str == NULL or strlen(mac_str)=%d", "", 0);
        return -1;
    }
    int role = 0;
    if (online_role(mac_str, &role) || offline_role(mac_str, &role))
        return role;
    return -3;
}
