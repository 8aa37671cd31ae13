#include "appident/requests/current_apps.h"

#include "appident/model/device_list.h"
#include "appident/model/records.h"
#include "appident/model/session_time.h"
#include "appident/pushes/push_channel.h"
#include "appident/router/device_service.h"
#include "common/counters.h"
#include "common/guards.h"

#include <stdio.h>
#include <string.h>

namespace {

// The shortest time-axis period (started minutes) that is listed.
constexpr u32 strict_minutes = 2;
constexpr u32 loose_minutes = 1;

const device_record *find_active_device(const char *mac_str)
{
    device_record *dev = tracked_device(mac_str);
    while (dev && dev->device_state != device_active)
        dev = next_of_same_mac(dev);
    return dev;
}

bool is_listed_app(const app_ident_record &app, u32 least_minutes)
{
    return !is_excluded_app(app.app_id) && app.time_axis_app_state == APP_USING && app.time_axis_period_time >= least_minutes;
}

void add_app_object(cJSON *apps, const app_ident_record &app)
{
    json_tree object(cJSON_CreateObject());
    if (!object)
        return;
    cJSON_AddNumberToObject(object.get(), "appid", app.app_id);
    cJSON_AddNumberToObject(object.get(), "starttime", app.time_axis_start_time);
    cJSON_AddNumberToObject(object.get(), "endtime", 0); // still in use
    cJSON_AddNumberToObject(object.get(), "sumtime", counted_minutes(app.time_axis_period_time));
    if (cJSON_AddItemToArray(apps, object.get()))
        (void)object.release();
}

// An app of the id 0 may stand in a record that something else filled; a list leaves it out, a device's own answer does not.
void add_apps(cJSON *apps, const device_record &dev, u32 least_minutes, bool skip_free_slots)
{
    if (get_device_role(dev.mac) <= 0)
        return;
    for (const app_ident_record &app : dev.apps) {
        if (skip_free_slots && app.app_id == 0)
            continue;
        if (is_listed_app(app, least_minutes))
            add_app_object(apps, app);
    }
}

// An answer without its payload; null when there is no memory.
json_tree begin_answer()
{
    json_tree answer(cJSON_CreateObject());
    if (!answer)
        return answer;
    cJSON_AddStringToObject(answer.get(), "err_no", "0");
    cJSON_AddStringToObject(answer.get(), "err_msg", "success");
    return answer;
}

// Adds a new array under the key; null when there is no memory.
cJSON *add_array(cJSON *object, const char *key)
{
    return cJSON_AddArrayToObject(object, key);
}

int write_answer(const cJSON *answer, char *buff, unsigned int *buff_len)
{
    heap_text text(cJSON_PrintUnformatted(answer));
    if (!text) {
        count(counter_no_memory);
        return -1;
    }
    snprintf(buff, *buff_len, "%s", text.get());
    *buff_len = static_cast<unsigned int>(strlen(text.get()));
    return 0;
}

int report_device(const char *mac_str, char *buff, unsigned int *buff_len, u32 least_minutes)
{
    if (!mac_str || !buff || !buff_len || *buff_len == 0)
        return -1;
    json_tree answer = begin_answer();
    cJSON *data = answer ? add_array(answer.get(), "data") : nullptr;
    if (!data)
        return -1;
    {
        mutex_guard locked(device_apps_mtx);
        const device_record *dev = find_active_device(mac_str);
        if (!dev) {
            *buff_len = 0;
            return 0;
        }
        add_apps(data, *dev, least_minutes, false);
    }
    return write_answer(answer.get(), buff, buff_len);
}

// One result of a device list; left out when there is no memory.
void add_result(cJSON *results, const char *mac_str, u32 least_minutes)
{
    json_tree result(cJSON_CreateObject());
    if (!result)
        return;
    cJSON_AddStringToObject(result.get(), "device", mac_str);
    cJSON *data = add_array(result.get(), "data");
    const device_record *dev = find_active_device(mac_str);
    if (data && dev)
        add_apps(data, *dev, least_minutes, true);
    if (cJSON_AddItemToArray(results, result.get()))
        (void)result.release();
}

int report_devices(const char *json_devices, char *buff, unsigned int *buff_len, u32 least_minutes)
{
    if (!json_devices || !buff || !buff_len || *buff_len == 0)
        return -1;
    json_tree request(cJSON_Parse(json_devices));
    const cJSON *devices = cJSON_GetObjectItem(request.get(), "device");
    if (!cJSON_IsArray(devices) || cJSON_GetArraySize(devices) == 0) {
        *buff_len = 0;
        return -1;
    }
    json_tree answer = begin_answer();
    cJSON *results = answer ? add_array(answer.get(), "results") : nullptr;
    if (!results)
        return -1;
    {
        mutex_guard locked(device_apps_mtx);
        const cJSON *mac = nullptr;
        cJSON_ArrayForEach(mac, devices) {
            if (cJSON_IsString(mac))
                add_result(results, mac->valuestring, least_minutes);
        }
    }
    return write_answer(answer.get(), buff, buff_len);
}

} // namespace

int get_cur_device_time_axis_app_json(const char *mac_str, char *buff, unsigned int *buff_len)
{
    return report_device(mac_str, buff, buff_len, strict_minutes);
}

int get_cur_device_time_axis_app_for_rom_json(const char *mac_str, char *buff, unsigned int *buff_len)
{
    return report_device(mac_str, buff, buff_len, loose_minutes);
}

int get_cur_devices_time_axis_app_json(const char *json_devices, char *buff, unsigned int *buff_len)
{
    return report_devices(json_devices, buff, buff_len, strict_minutes);
}

int get_cur_devices_time_axis_app_for_rom_json(const char *json_devices, char *buff, unsigned int *buff_len)
{
    return report_devices(json_devices, buff, buff_len, loose_minutes);
}
