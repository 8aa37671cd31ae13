#include "appident/tracking/sessions.h"

#include "appident/model/session_time.h"
#include "appident/pushes/push_history.h"
#include "appident/pushes/push_presence.h"
#include "common/log.h"
#include "igd/igd_lib.h"

#include <string.h>

namespace {

void clear_bytes(app_ident_record &app)
{
    app.up_bytes = 0;
    app.down_bytes = 0;
}

void clear_window(app_ident_record &app)
{
    memset(app.hit_records, 0, sizeof(app.hit_records));
}

// The window is for the three latest minutes: moves it to the minute of the session when that is ahead.
void move_window(app_ident_record &app, u32 minute)
{
    if (minute <= app.move_step)
        return;
    // Three shifts empty the window; a jump of the clock must not loop for more.
    u32 shifts = minute - app.move_step;
    for (u32 i = 0; i < shifts && i < minutes_in_window; i++) {
        app.hit_records[0] = app.hit_records[1];
        app.hit_records[1] = app.hit_records[2];
        app.hit_records[2] = {};
    }
    app.move_step = minute;
}

// End, sum and state of the plain session; what starts again at zero with every closing.
void close_plain(app_ident_record &app)
{
    app.app_state = APP_DISUSE;
    app.end_time = session_end(app.start_time, app.period_time);
    if (!is_short(app.period_time))
        app.sum_time += counted_minutes(app.period_time);
    app.period_time = 0;
    app.move_step = 0;
    clear_bytes(app);
    clear_window(app);
}

// The pushes of a closing, with the end time and the sum that they show.
void push_closing(device_record *dev, int slot, bool short_end_first)
{
    app_ident_record &app = dev->apps[slot];
    u32 end = session_end(app.time_axis_start_time, app.time_axis_period_time);
    if (is_short(app.time_axis_period_time)) {
        if (short_end_first)
            app.time_axis_end_time = end;
        push_offline_app(*dev, slot);
        app.time_axis_end_time = end;
        return;
    }
    app.time_axis_end_time = end;
    app.time_axis_sum_time += counted_minutes(app.time_axis_period_time);
    push_offline_app(*dev, slot);
    push_history_time_axis_sumtime(dev, &app);
}

void arm_delayed_push(device_record *dev, const app_ident_record &app, u32 push_minute)
{
    dev->delay_push_appid = app.app_id;
    dev->delay_push_period_time = counted_minutes(app.time_axis_period_time);
    dev->delay_push_accur_time = get_system_uptime();
    dev->delay_push_rand_time = push_minute;
    dev->delay_push_up_bytes = app.up_bytes;
    dev->delay_push_down_bytes = app.down_bytes;
}

void restart_time_axis(device_record *dev, app_ident_record &app, day_end pass, u32 push_minute)
{
    notify_app_status(dev, &app, app_status_ended);
    notify_app_status(dev, &app, app_status_started);
    if (!is_short(app.time_axis_period_time)) {
        arm_delayed_push(dev, app, push_minute);
        // The evening pass once ran at 21:30; its line is still searched for by that name.
        if (pass == day_end::midnight)
            url_check_log(0, "[appident] zero delay push delay_push_rand_time:%d", static_cast<int>(push_minute));
        else
            url_check_log(0, "[appident] 21:30 delay push delay_push_rand_time:%d", static_cast<int>(push_minute));
    }
    app.time_axis_start_time = wall_clock();
    app.time_axis_period_time = 1;
    app.time_axis_end_time = 0;
}

} // namespace

void open_sessions(app_ident_record &app, const app_data &hit, u32 now)
{
    app.start_time = now;
    app.period_time = 1;
    app.move_step = 1;
    app.alert_push_num = 0;
    app.daydayup_alert_push_num = 0;
    app.hit_records[0] = {1, hit.req_bytes, hit.rep_bytes};
    // From APP_DISUSE the day's sum is kept and the new session adds to it.
    if (app.app_state == APP_UNUSED)
        app.sum_time = 0;
    app.app_state = APP_USING;
    app.time_axis_app_state = APP_USING;
    app.time_axis_start_time = now;
    app.time_axis_period_time = 1;
}

void take_time_axis(app_ident_record &app, axis_taken how, u32 now)
{
    app.time_axis_app_state = APP_USING;
    app.time_axis_start_time = now;
    app.time_axis_period_time = 1;
    if (how == axis_taken::free_axis) {
        app.alert_push_num = 0;
        app.daydayup_alert_push_num = 0;
    }
}

void add_app_hit_record(app_ident_record *app, app_data *ad)
{
    u32 now = wall_clock();
    if (now <= app->start_time)
        return;
    if (app->time_axis_app_state == APP_USING) {
        u32 axis_minutes = started_minutes(app->time_axis_start_time, now);
        if (app->time_axis_period_time < axis_minutes)
            app->time_axis_period_time = axis_minutes;
    }
    app->current_time = now;
    u32 minute = started_minutes(app->start_time, now);
    if (app->period_time < app->move_step)
        app->period_time = app->move_step;

    hit_record *current = &app->hit_records[minutes_in_window - 1];
    if (minute <= minutes_in_window) {
        app->period_time = minute;
        app->move_step = minute;
        current = &app->hit_records[minute - 1];
    } else if (minute > app->move_step) {
        move_window(*app, minute);
        app->period_time = minute;
    } else if (minute < app->move_step) {
        return; // the clock stepped back a little
    }
    current->hit_times++;
    current->up_bytes += ad->req_bytes;
    current->down_bytes += ad->rep_bytes;
}

void age_session(app_ident_record &app, u32 now)
{
    if (now <= app.start_time)
        return;
    app.current_time = now;
    u32 minute = started_minutes(app.start_time, now);
    if (minute > minutes_in_window)
        move_window(app, minute);
    else if (app.move_step < minute)
        app.move_step = minute;
}

bool is_silent(const app_ident_record &app)
{
    for (const hit_record &minute : app.hit_records) {
        if (minute.hit_times != 0)
            return false;
    }
    return true;
}

void close_time_axis(device_record *dev, int slot, closing why)
{
    const closing_rule &rule = closing_rules[static_cast<int>(why)];
    app_ident_record &app = dev->apps[slot];
    app.time_axis_app_state = APP_UNUSED;
    if (rule.status == ended_status::before_pushes)
        notify_app_status(dev, &app, app_status_ended);
    push_closing(dev, slot, rule.short_end_first);
    // Before the period is zeroed: the status carries its length.
    if (rule.status == ended_status::after_pushes)
        notify_app_status(dev, &app, app_status_ended);
    if (rule.short_wipes_sum && is_short(app.time_axis_period_time))
        app.time_axis_sum_time = 0;
    app.time_axis_period_time = 0;
    if (rule.end != kept_end::computed)
        app.time_axis_end_time = rule.end == kept_end::now ? wall_clock() : 0;
    if (rule.clears_bytes)
        clear_bytes(app);
}

void close_session(device_record *dev, int slot, closing why)
{
    const closing_rule &rule = closing_rules[static_cast<int>(why)];
    app_ident_record &app = dev->apps[slot];
    if (app.time_axis_app_state == APP_USING)
        close_time_axis(dev, slot, why);
    close_plain(app);
    if (rule.clears_alerts) {
        app.alert_push_num = 0;
        app.daydayup_alert_push_num = 0;
    }
    if (rule.clears_rules)
        clear_rule_list(&app.rule_list_head);
}

void restart_session_at_day_end(device_record *dev, int slot, day_end pass, u32 push_minute)
{
    app_ident_record &app = dev->apps[slot];
    if (app.time_axis_app_state == APP_USING)
        restart_time_axis(dev, app, pass, push_minute);
    // Also off the time axis: yesterday's minutes must not count towards today's limits. The closed sessions' own minutes are
    // dropped with them, for a day starts from zero; only the delayed push reports them.
    app.time_axis_sum_time = 0;
    app.start_time = wall_clock();
    app.period_time = 1;
    app.move_step = 1;
    app.alert_push_num = 0;
    app.end_time = 0;
    app.sum_time = 0;
    clear_bytes(app);
}

void clear_session_at_day_end(app_ident_record &app)
{
    app.start_time = 0;
    app.period_time = 0;
    app.move_step = 0;
    app.alert_push_num = 0;
    app.end_time = 0;
    app.sum_time = 0;
    app.time_axis_app_state = APP_UNUSED;
    app.time_axis_start_time = 0;
    app.time_axis_end_time = 0;
    app.time_axis_period_time = 0;
    app.time_axis_sum_time = 0;
    clear_bytes(app);
    clear_window(app);
    clear_rule_list(&app.rule_list_head);
}
