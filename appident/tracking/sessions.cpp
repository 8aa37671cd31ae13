#include "appident/tracking/sessions.h"

#include "appident/pushes/push_history.h"
#include "appident/pushes/push_presence.h"
#include "common/log.h"
#include "igd/igd_lib.h"

#include <string.h>

namespace {

bool is_short(u32 period)
{
    return period < 2;
}

u32 end_of(u32 start, u32 period)
{
    return is_short(period) ? start + period * 60 : start + period * 60 - 60;
}

// End and sum of a time-axis session of two minutes or more.
void count_time_axis(app_ident_record &app)
{
    app.time_axis_end_time = end_of(app.time_axis_start_time, app.time_axis_period_time);
    app.time_axis_sum_time += app.time_axis_period_time - 1;
}

void clear_bytes(app_ident_record &app)
{
    app.up_bytes = 0;
    app.down_bytes = 0;
}

void clear_window(app_ident_record &app)
{
    memset(app.hit_records, 0, sizeof(app.hit_records));
}

// End, sum and state of the plain session; what starts again at zero with every closing.
void close_plain(app_ident_record &app)
{
    app.app_state = APP_DISUSE;
    app.end_time = end_of(app.start_time, app.period_time);
    if (!is_short(app.period_time))
        app.sum_time += app.period_time - 1;
    app.period_time = 0;
    app.move_step = 0;
    clear_bytes(app);
    clear_window(app);
}

// The session as the pushes of its closing see it: a long one with its end, its sum and a history push.
void push_closing(device_record *dev, int slot)
{
    app_ident_record &app = dev->apps[slot];
    if (is_short(app.time_axis_period_time)) {
        push_offline_app(*dev, slot);
        return;
    }
    count_time_axis(app);
    push_offline_app(*dev, slot);
    push_history_time_axis_sumtime(dev, &app);
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

void close_time_axis_taken_over(device_record *dev, int slot, axis_lost_to whom)
{
    app_ident_record &app = dev->apps[slot];
    app.time_axis_app_state = APP_UNUSED;
    if (whom == axis_lost_to::new_app)
        notify_app_status(dev, &app, app_status_ended);

    bool ends_after_push = whom == axis_lost_to::game;
    u32 end = end_of(app.time_axis_start_time, app.time_axis_period_time);
    if (is_short(app.time_axis_period_time) && !ends_after_push)
        app.time_axis_end_time = end;
    push_closing(dev, slot);
    app.time_axis_end_time = end;

    // Before the period is zeroed: the status carries its length.
    if (whom == axis_lost_to::reopened_app)
        notify_app_status(dev, &app, app_status_ended);
    app.time_axis_period_time = 0;
    if (whom != axis_lost_to::game)
        clear_bytes(app);
}

void close_silent_session(device_record *dev, int slot)
{
    app_ident_record &app = dev->apps[slot];
    if (app.time_axis_app_state == APP_USING) {
        app.time_axis_app_state = APP_UNUSED;
        notify_app_status(dev, &app, app_status_ended);
        bool wipes_sum = is_short(app.time_axis_period_time);
        push_closing(dev, slot);
        app.time_axis_period_time = 0;
        app.time_axis_end_time = 0;
        // On purpose: a one-minute session at its end takes the app's time-axis minutes of the day with it.
        if (wipes_sum)
            app.time_axis_sum_time = 0;
    }
    close_plain(app);
    clear_rule_list(&app.rule_list_head);
}

void close_session_at_once(device_record *dev, int slot)
{
    app_ident_record &app = dev->apps[slot];
    if (app.time_axis_app_state == APP_USING) {
        app.time_axis_app_state = APP_UNUSED;
        notify_app_status(dev, &app, app_status_ended);
        push_closing(dev, slot);
        app.time_axis_period_time = 0;
        app.time_axis_end_time = wall_clock();
    }
    close_plain(app);
    app.alert_push_num = 0;
    app.daydayup_alert_push_num = 0;
}

namespace {

void arm_delayed_push(device_record *dev, const app_ident_record &app, u32 push_minute)
{
    dev->delay_push_appid = app.app_id;
    dev->delay_push_period_time = app.time_axis_period_time - 1;
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

void restart_session_at_day_end(device_record *dev, int slot, day_end pass, u32 push_minute)
{
    app_ident_record &app = dev->apps[slot];
    if (app.time_axis_app_state == APP_USING)
        restart_time_axis(dev, app, pass, push_minute);
    // Also off the time axis: yesterday's minutes must not count towards today's limits. What the closed sessions would have
    // added goes with them, on purpose; only the delayed push tells of it.
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

void step_minute_window(app_ident_record &app, u32 minute)
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
