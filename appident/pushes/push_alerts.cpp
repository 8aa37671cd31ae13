#include "appident/pushes/push_alerts.h"

#include "appident/model/session_time.h"
#include "appident/pushes/payment.h"
#include "appident/pushes/push_channel.h"
#include "appident/router/device_service.h"
#include "common/log.h"

namespace {

enum limit_class : u32 { class_daydayup = 4, class_eye_protection = 5 };

// Classes 1 to 3 limit the summed use of their apps.
bool is_summed_class(u32 class_type)
{
    return class_type >= 1 && class_type <= 3;
}

bool is_limit_index(int index)
{
    return index >= 0 && index < limits_per_device;
}

u32 limits_in_use(const device_record *dev)
{
    return dev->utl_num < limits_per_device ? dev->utl_num : static_cast<u32>(limits_per_device);
}

// An app's minutes of the day. Nothing gives the time axis another state than these two; a record that has one counts nothing.
u32 minutes_of_day(const app_ident_record &app)
{
    switch (app.time_axis_app_state) {
    case APP_USING:
        return app.time_axis_sum_time + counted_minutes(app.time_axis_period_time);
    case APP_UNUSED:
        return app.time_axis_sum_time;
    default:
        return 0;
    }
}

u32 class_minutes(const device_record *dev, use_time_limit *limit)
{
    u32 sum = 0;
    for (const app_ident_record &app : dev->apps) {
        u32 minutes = app.app_id != 0 ? minutes_of_day(app) : 0;
        if (minutes != 0 && app_in_limit_array(app.app_id, limit))
            sum += minutes;
    }
    return sum;
}

// How many whole limits were used up; minutes >= limit > 0.
u32 multiples_of(u32 minutes, u32 limit)
{
    return (minutes - limit) / limit + 1;
}

void log_class_apps(const device_record *dev, use_time_limit *limit)
{
    for (const app_ident_record &app : dev->apps) {
        bool opened = app.time_axis_app_state == APP_USING || app.time_axis_app_state == APP_DISUSE;
        if (!opened || app.app_id == 0 || !app_in_limit_array(app.app_id, limit))
            continue;
        url_check_log(0, "[appident] \t\tapp_id = %u, start_time = %u, current_time = %u, sum_time = %u, period_time = %u",
                      app.app_id, app.time_axis_start_time, app.current_time, app.time_axis_sum_time,
                      counted_minutes(app.time_axis_period_time));
    }
}

void alert_long_sessions(device_record *dev, int index)
{
    for (app_ident_record &app : dev->apps) {
        if (app.time_axis_app_state == APP_USING && counted_minutes(app.time_axis_period_time) >= dev->utl[index].use_time)
            push_eye_protection_alert(dev, index, &app);
    }
}

use_time_limit *daydayup_limit(device_record *dev)
{
    for (u32 i = 0; i < limits_in_use(dev); ++i) {
        if (dev->utl[i].class_type == class_daydayup)
            return &dev->utl[i];
    }
    return nullptr;
}

// 0 when the daydayup alert is due, else the reason why not. The order of the checks is part of the answer.
int daydayup_refusal(device_record *dev, const app_ident_record *app)
{
    if (!dev || !app)
        return -1;
    if (is_excluded_app(app->app_id))
        return app->app_id <= QQ_PAY ? -2 : -3;
    if (get_device_role(dev->mac) != 1)
        return -4;
    use_time_limit *limit = daydayup_limit(dev);
    if (!limit)
        return -5;
    if (limit->onoff == 0)
        return -6;
    if (!app_in_limit_array(app->app_id, limit))
        return -7;
    if (app->daydayup_alert_push_num == 1)
        return -8;
    if (is_short(app->time_axis_period_time))
        return -9;
    // Stopped less than an hour ago is no new start. After a step back of the clock the difference is huge and passes.
    if (app->end_time != 0 && wall_clock() - app->end_time < 3600)
        return -10;
    return 0;
}

} // namespace

int app_in_limit_array(u32 app_id, use_time_limit *utl)
{
    if (!utl)
        return 0;
    u32 num = utl->app_id_num < apps_per_limit ? utl->app_id_num : static_cast<u32>(apps_per_limit);
    for (u32 i = 0; i < num; ++i) {
        if (utl->app_ids[i].app_id == app_id && utl->app_ids[i].checked != 0)
            return 1;
    }
    return 0;
}

int push_addiction_alert(device_record *dev, int class_type_idx, u32 sum_time)
{
    if (!dev || sum_time == 0 || !is_limit_index(class_type_idx) || !is_summed_class(dev->utl[class_type_idx].class_type))
        return -1;
    use_time_limit *limit = &dev->utl[class_type_idx];
    if (limit->use_time == 0 || sum_time < limit->use_time)
        return 0;
    u32 times = multiples_of(sum_time, limit->use_time);
    if (limit->alert_push_num >= times)
        return 0;
    limit->alert_push_num = times;
    push_object(
        push_code_addiction, *dev, 0,
        [&](cJSON *object) {
            add_u32(object, "class_type", limit->class_type);
            add_u32(object, "use_time", limit->use_time * limit->alert_push_num);
        },
        [&](const char *alias, const char *text, int result) {
            url_check_log(0,
                          "[appident] push_addiction_alert -> [1015], [%s] [%s] class_type = %u, use_time = %u, sum_time = %u, "
                          "alert_push_num = %u\n\t%s, ret = %d",
                          dev->mac, alias, limit->class_type, limit->use_time, sum_time, limit->alert_push_num, text, result);
            log_class_apps(dev, limit);
        });
    return 0;
}

int push_eye_protection_alert(device_record *dev, int class_type_idx, app_ident_record *app)
{
    if (!dev || !app || !is_limit_index(class_type_idx) || is_excluded_app(app->app_id))
        return -1;
    const use_time_limit *limit = &dev->utl[class_type_idx];
    if (limit->class_type != class_eye_protection || limit->onoff == 0 || app->time_axis_app_state != APP_USING)
        return -1;
    u32 minutes = counted_minutes(app->time_axis_period_time);
    if (limit->use_time == 0 || minutes < limit->use_time)
        return 0;
    u32 times = multiples_of(minutes, limit->use_time);
    if (app->alert_push_num >= times)
        return 0;
    app->alert_push_num = times;
    push_object(
        push_code_eye_protection, *dev, 0,
        [&](cJSON *object) {
            add_int(object, "role", shown_role(dev->mac));
            add_int(object, "appid", static_cast<int>(app->app_id));
            add_int(object, "times", static_cast<int>(app->alert_push_num * limit->use_time * 60));
        },
        [&](const char *alias, const char *text, int result) {
            url_check_log(0,
                          "[appident] push_eye_protection_alert -> [1021], [%s] [%s] class_type = %u, use_time = %u, "
                          "app_id = %u, time_axis_period_time = %u, alert_push_num = %u\n\t%s, ret = %d",
                          dev->mac, alias, limit->class_type, limit->use_time, app->app_id, minutes, app->alert_push_num, text,
                          result);
        });
    return 0;
}

int push_daydayup_alert(device_record *dev, app_ident_record *app)
{
    int refusal = daydayup_refusal(dev, app);
    if (refusal != 0)
        return refusal;
    push_object(
        push_code_daydayup, *dev, 0,
        [&](cJSON *object) {
            add_u32(object, "role", static_cast<u32>(shown_role(dev->mac)));
            add_u32(object, "appid", app->app_id);
        },
        [&](const char *alias, const char *text, int result) {
            url_check_log(0, "[appident] push_daydayup_alert -> [1022], [%s] [%s] app_id = %u\n\t%s, ret = %d", dev->mac, alias,
                          app->app_id, text, result);
        });
    // Also when there was no memory: an alert is never sent later, when it would no longer be true.
    app->daydayup_alert_push_num = 1;
    return 0;
}

int push_app_alert(device_record *dev)
{
    if (!dev) {
        url_check_log(0, "[appident]  pdevice_record == NULL");
        return -1;
    }
    // This also means no payment alert for a device without limits: payments are watched only where somebody has set limits.
    if (dev->utl_num == 0) {
        url_check_log(0, "[appident] push_app_alert %s  utl_num == 0 -> error 1", dev->mac);
        return -1;
    }
    int role = get_device_role(dev->mac);
    if (role < 1)
        return -1;
    push_pay_alert(dev);
    if (role != 1) {
        url_check_log(0, "[appident] role != 1");
        return -1;
    }
    for (u32 i = 0; i < limits_in_use(dev); ++i) {
        use_time_limit *limit = &dev->utl[i];
        if (limit->onoff != 1)
            continue;
        if (limit->class_type == class_eye_protection)
            alert_long_sessions(dev, static_cast<int>(i));
        else if (is_summed_class(limit->class_type))
            push_addiction_alert(dev, static_cast<int>(i), class_minutes(dev, limit));
    }
    return -1;
}

int pre_push_app_alert(device_record *dev)
{
    if (!dev || dev->utl_num == 0 || get_device_role(dev->mac) != 1)
        return -1;
    for (u32 i = 0; i < limits_in_use(dev); ++i) {
        use_time_limit *limit = &dev->utl[i];
        if (limit->onoff != 1 || !is_summed_class(limit->class_type) || limit->use_time == 0)
            continue;
        u32 minutes = class_minutes(dev, limit);
        if (minutes >= limit->use_time)
            limit->alert_push_num = multiples_of(minutes, limit->use_time);
    }
    return -1;
}
