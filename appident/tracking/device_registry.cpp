#include "appident/tracking/device_registry.h"

#include "appident/model/device_list.h"
#include "appident/pushes/push_history.h"
#include "appident/router/device_service.h"
#include "appident/settings/payment_settings.h"
#include "appident/settings/use_time_limits.h"
#include "appident/tracking/sessions.h"
#include "common/counters.h"
#include "common/guards.h"
#include "common/log.h"
#include "common/sec_plg_common.h"
#include "igd/igd_netlink.h"

#include <malloc.h>
#include <stdio.h>
#include <string.h>

namespace {

// Null, with a log line, when there is no memory.
device_record *allocate_or_log(const char *mac_str)
{
    device_record *rec = allocate_device_record(mac_str);
    if (!rec) {
        count(counter_no_memory);
        // One text wherever a record is allocated: technicians search for it.
        url_check_log(0, "[appident] init_device_app_list -> malloc error");
    }
    return rec;
}

// False when there was no memory.
bool add_listed_device(const cJSON *device)
{
    const cJSON *mac = cJSON_GetObjectItem(device, "mac");
    long value = 0;
    if (!cJSON_IsString(mac) || !service_integer(device, "role", &value))
        return true;
    int role = static_cast<int>(value);
    if (role <= 0) {
        url_check_log(0, "[appident] init_device_app_list %s ->device_role:%d", mac->valuestring, role);
        return true;
    }
    device_record *rec = allocate_or_log(mac->valuestring);
    if (!rec)
        return false;
    link_device(rec);
    url_check_log(0, "[appident] add online role:%d mac:%s", role, mac->valuestring);
    return true;
}

bool is_listed(const char *mac_str)
{
    mutex_guard locked(device_apps_mtx);
    return tracked_device(mac_str) != nullptr;
}

void link_locked(device_record *rec)
{
    mutex_guard locked(device_apps_mtx);
    link_device(rec);
}

void device_came_online(const char *mac_str)
{
    if (is_listed(mac_str)) {
        url_check_log(0, "[appident] add online: %s but this mac already in list", mac_str);
        return;
    }
    cJSON *data = nullptr;
    json_tree answer = ask_online_device(mac_str, &data);
    long value = 0;
    if (!answer || cJSON_GetArraySize(data) != 1 || !service_integer(cJSON_GetArrayItem(data, 0), "role", &value))
        return;
    int role = static_cast<int>(value);
    if (role <= 0) {
        url_check_log(0, "[appident] IGD_ACTION_ADD %s ->device_role:%d", mac_str, role);
        return;
    }
    device_record *rec = allocate_or_log(mac_str);
    if (!rec)
        return;
    link_locked(rec);
    url_check_log(0, "[appident] add online role:%d mac:%s", role, mac_str);
}

void end_device(device_record *rec)
{
    push_delay_history_time(rec);
    for (int slot = 0; slot < apps_per_device; slot++) {
        if (rec->apps[slot].app_id != 0 && rec->apps[slot].app_state == APP_USING)
            close_session(rec, slot, closing::departure);
    }
}

void device_went_offline(const char *mac_str)
{
    mutex_guard locked(device_apps_mtx);
    device_record *next = nullptr;
    for (device_record *rec = tracked_device(mac_str); rec; rec = next) {
        next = next_of_same_mac(rec);
        if (rec->device_state == device_active) {
            end_device(rec);
            remove_device(rec);
            url_check_log(0, "[appident] device offline: %s del one node from list", mac_str);
            return;
        }
        if (rec->device_state == device_listed) {
            remove_device(rec);
            url_check_log(0, "[appident] device offline: %s del one node(not used) from list ", mac_str);
        }
    }
}

} // namespace

void init_device_app_list(void)
{
    cJSON *data = nullptr;
    json_tree answer = ask_service(online_devices_path, "noneed=noneed", &data);
    if (!answer)
        return;
    url_check_log(0, "[appident] online device: %d ", cJSON_GetArraySize(data));
    const cJSON *device = nullptr;
    cJSON_ArrayForEach(device, data) {
        if (!add_listed_device(device))
            return;
    }
}

void handle_device_action(int action, struct in_addr *addr, const unsigned char *mac)
{
    char mac_str[20] = "";
    if (!addr || !get_mac_str_by_mac(mac, mac_str, sizeof(mac_str)))
        return;
    if (action == IGD_ACTION_ADD)
        device_came_online(mac_str);
    if (action == IGD_ACTION_DEL) {
        device_went_offline(mac_str);
#ifdef __GLIBC__
        malloc_trim(0);
#endif
    }
}

void add_device_record_to_tail(const char *mac_str)
{
    if (is_listed(mac_str)) {
        url_check_log(0, "[appident] add_device_record_to_tail add online: %s but this mac already in list", mac_str);
        return;
    }
    cJSON *data = nullptr;
    json_tree answer = ask_online_device(mac_str, &data);
    if (!answer || cJSON_GetArraySize(data) != 1)
        return;
    device_record *rec = allocate_or_log(mac_str);
    if (!rec)
        return;
    int role = get_device_role(mac_str);
    link_locked(rec);
    url_check_log(0, "[appident] add _ online role:%d mac:%s", role, mac_str);
}

void activate_device(device_record *rec, const char *ip_text, const unsigned char *mac_bytes)
{
    if (rec->device_state == device_active)
        return;
    bool first_time = rec->device_state == device_listed;
    rec->device_state = device_active;
    snprintf(rec->ip, sizeof(rec->ip), "%s", ip_text);
    if (first_time) {
        memcpy(rec->mac_bytes, mac_bytes, sizeof(rec->mac_bytes));
        rec->role = get_device_role(rec->mac);
    }
    if (rec->utl_num == 0)
        load_device_config(rec);
    load_device_pay_config(rec);
}
