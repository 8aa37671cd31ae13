#include "appident/pushes/push_presence.h"

#include "appident/model/session_time.h"
#include "appident/pushes/push_channel.h"
#include "appident/router/device_service.h"
#include "common/counters.h"
#include "common/log.h"
#include "igd/igd_lib.h"

#include <string.h>

namespace {

// Characters of the report of apps in use, with its terminator.
constexpr size_t using_text_size = 4096;

json_tree presence_object(const device_record &dev, int role, const app_ident_record &app, const char *status)
{
    json_tree object = begin_object(dev);
    if (!object)
        return object;
    add_u32(object.get(), "role", static_cast<u32>(role));
    add_u32(object.get(), "appid", app.app_id);
    add_u32(object.get(), "starttime", app.time_axis_start_time);
    add_u32(object.get(), "endtime", app.time_axis_end_time);
    add_u32(object.get(), "sumtime", counted_minutes(app.time_axis_period_time));
    add_text(object.get(), "status", status);
    end_object(object.get(), dev);
    return object;
}

// The object as a one-element array; null when there is no memory.
heap_text presence_array(const device_record &dev, int role, const app_ident_record &app, const char *status)
{
    json_tree array(cJSON_CreateArray());
    json_tree object = presence_object(dev, role, app, status);
    if (!array || !object || !cJSON_AddItemToArray(array.get(), object.get()))
        return nullptr;
    (void)object.release(); // the array owns it
    return heap_text(cJSON_PrintUnformatted(array.get()));
}

// An app comes into use or goes out of it. The pushes and log lines of the two differ in these words only.
struct presence_change {
    const char *reporter;
    const char *status;
    char before_role; // in the log line of a device without a role
};

int push_change(const presence_change &change, const device_record &dev, int slot)
{
    int role = get_device_role(dev.mac);
    if (role < 1) {
        url_check_log(0, "[appident] %s mac:%s%crole = %d", change.reporter, dev.mac, change.before_role, role);
        return -1;
    }
    heap_text text = presence_array(dev, role, dev.apps[slot], change.status);
    url_check_log(0, "[appident] %s: %s", change.reporter, text ? text.get() : "");
    if (text)
        my_push(push_code_presence, text.get(), 0);
    return 0;
}

// The report of apps in use while it grows.
struct using_report {
    json_tree objects;
    size_t length; // of the array's text so far, with the opening bracket and a comma behind each object
    bool full;     // an object did not fit: none is added any more
    bool in_use;   // an app is in use, also one without a counted minute
};

void append_using_apps(using_report &report, const device_record &dev, int role)
{
    for (const app_ident_record &app : dev.apps) {
        if (app.time_axis_app_state != APP_USING)
            continue;
        report.in_use = true;
        if (counted_minutes(app.time_axis_period_time) == 0 || report.full)
            continue;
        json_tree object = presence_object(dev, role, app, "using");
        heap_text text(object ? cJSON_PrintUnformatted(object.get()) : nullptr);
        if (!text)
            continue;
        size_t length = report.length + strlen(text.get()) + 1;
        report.full = length >= using_text_size;
        if (report.full || !cJSON_AddItemToArray(report.objects.get(), object.get()))
            continue;
        (void)object.release(); // the array owns it
        report.length = length;
    }
}

} // namespace

int push_online_app(const device_record &dev, int j)
{
    return push_change({"push_online_app", "online", ','}, dev, j);
}

int push_offline_app(const device_record &dev, int j)
{
    return push_change({"push_offline_app", "offline", ' '}, dev, j);
}

int push_using_app(void)
{
    using_report report = {json_tree(cJSON_CreateArray()), 1, false, false};
    list_for_each(node, &device_apps_head) {
        const device_record &dev = *device_of(node);
        int role = get_device_role(dev.mac);
        if (role < 1) {
            url_check_log(0, "[appident] push_using_app mac:%s role = %d", dev.mac, role);
            continue;
        }
        if (dev.device_state != device_listed)
            append_using_apps(report, dev, role);
    }
    if (!report.in_use) {
        url_check_log(0, "[appident] push_using_app:  no device is using_app");
        return 0;
    }
    if (report.length == 1) {
        url_check_log(0, "[appident] push_using_app:  sumtime=0 don`t push");
        return 0;
    }
    heap_text text(cJSON_PrintUnformatted(report.objects.get()));
    if (!text) {
        count(counter_no_memory);
        return 0;
    }
    url_check_log(0, "[appident] push_using_app: %s", text.get());
    my_push(push_code_presence, text.get(), 0);
    return 0;
}

int notify_app_status(device_record *dev, app_ident_record *app, int status)
{
    if (!dev || !app)
        return -1;
    app_info_sync_st info = {};
    info.app_id = app->app_id;
    info.app_status = static_cast<char>(status);
    memcpy(info.mac, dev->mac_bytes, sizeof(info.mac));
    // For an ended session the stamp is its length in seconds, not a point in time: its receivers rely on that.
    u32 stamp = status == app_status_ended     ? counted_seconds(app->time_axis_period_time)
                : status == app_status_started ? app->start_time
                                               : wall_clock();
    info.timestamp = static_cast<time_t>(stamp);
    int result = app_info_to_devpush(&info, 1);
    url_check_log(0, "[appident] app_info_to_devpush -> ret = [%d] [appid = %d, status = %d,  timestamp = %d]", result,
                  static_cast<int>(info.app_id), status, static_cast<int>(stamp));
    return result;
}
