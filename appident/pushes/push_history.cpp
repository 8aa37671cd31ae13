#include "appident/pushes/push_history.h"

#include "appident/model/rule_list.h"
#include "appident/model/session_time.h"
#include "appident/pushes/push_channel.h"
#include "appident/router/device_service.h"
#include "common/log.h"

namespace {

// What both reports carry; durations in seconds.
struct history_report {
    const char *reporter; // for the log
    u32 app_id;
    u32 seconds;
    u64 up_bytes;
    u64 down_bytes;
    const char *rule_ids;
    unsigned long occur_time;
};

int push_history(const device_record &dev, const history_report &report)
{
    return push_object(
        push_code_history, dev, report.occur_time,
        [&](cJSON *object) {
            add_u32(object, "appid", report.app_id);
            add_u32(object, "sumtime", report.seconds);
            add_u64(object, "up_traffic", report.up_bytes);
            add_u64(object, "down_traffic", report.down_bytes);
            add_text(object, "ruleid", report.rule_ids);
        },
        [&](const char *, const char *text, int result) {
            url_check_log(0,
                          "[appident] %s -> [1008], app_id = %u, use_time = %us, up_traffic = %llu, down_traffic = %llu\n\t%s, "
                          "ret = %d",
                          report.reporter, report.app_id, report.seconds, static_cast<unsigned long long>(report.up_bytes),
                          static_cast<unsigned long long>(report.down_bytes), text, result);
        });
}

// The line shows -1 whatever the look-up returned: technicians search for this text.
void log_no_role(const char *reporter, const device_record &dev)
{
    url_check_log(0, "[appident] ERROR %s -> [1008] get_device_role failed...MAC: %s, role = %d", reporter, dev.mac, -1);
}

void clear_delayed_push(device_record *dev)
{
    dev->delay_push_appid = 0;
    dev->delay_push_period_time = 0;
    dev->delay_push_accur_time = 0;
    dev->delay_push_rand_time = 0;
    dev->delay_push_up_bytes = 0;
    dev->delay_push_down_bytes = 0;
}

} // namespace

int push_history_time_axis_sumtime(device_record *dev, app_ident_record *app)
{
    static constexpr const char *reporter = "push_history_time_axis_sumtime";
    if (!dev || !app || is_excluded_app(app->app_id))
        return -1;
    // Role 0 is reported, unlike by the delayed report: when a device has lost its role, its last sessions are still
    // reported.
    if (get_device_role(dev->mac) < 0) {
        log_no_role(reporter, *dev);
        return -1;
    }
    char rule_ids[257];
    get_hit_ruleids(app, rule_ids, sizeof(rule_ids));
    return push_history(*dev, {reporter, app->app_id, counted_seconds(app->time_axis_period_time), app->up_bytes,
                               app->down_bytes, rule_ids, 0});
}

int push_delay_history_time(device_record *dev)
{
    static constexpr const char *reporter = "push_delay_history_time";
    if (!dev || is_excluded_app(dev->delay_push_appid))
        return -1;
    if (get_device_role(dev->mac) < 1) {
        log_no_role(reporter, *dev);
        return -1;
    }
    if (dev->delay_push_period_time == 0 || dev->delay_push_appid == 0)
        return -1;
    // The copy keeps no rule list, and receivers expect some text: a fixed one stands in its place. No minute is taken off
    // here: that was done when the report was armed.
    int result =
        push_history(*dev, {reporter, dev->delay_push_appid, dev->delay_push_period_time * 60, dev->delay_push_up_bytes,
                            dev->delay_push_down_bytes, "123456", dev->delay_push_accur_time});
    clear_delayed_push(dev);
    return result;
}
