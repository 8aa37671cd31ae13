#include "appident/tracking/tick.h"

#include "appident/model/device_list.h"
#include "appident/model/records.h"
#include "appident/pushes/push_alerts.h"
#include "appident/pushes/push_channel.h"
#include "appident/pushes/push_history.h"
#include "appident/pushes/push_presence.h"
#include "appident/settings/use_time_limits.h"
#include "appident/tracking/dump.h"
#include "appident/tracking/offline.h"
#include "appident/tracking/sessions.h"
#include "common/counters.h"
#include "common/guards.h"
#include "common/log.h"

#include <fcntl.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

namespace {

constexpr unsigned tick_seconds = 3;
constexpr u32 catalogue_seconds = 1200;
constexpr u32 report_seconds = 60;
constexpr int day_end_hours[] = {0, 23};
constexpr u32 evening_push_minute = 1;
constexpr u32 midnight_push_minutes = 50; // a random one of these spreads the reports of many routers

// Hour and minute of the local clock, -1 when the C library cannot compute them.
struct local_time {
    int hour;
    int minute;
};

local_time local_time_of(time_t now)
{
    tm local;
    tzset(); // the zone may be set while the daemon runs
    if (!localtime_r(&now, &local))
        return {-1, -1};
    return {local.tm_hour, local.tm_min};
}

template <typename visitor> void for_each_seen_device(visitor visit)
{
    list_for_each(node, &device_apps_head) {
        if (device_of(node)->device_state != device_listed)
            visit(device_of(node));
    }
}

void close_day(day_end pass, u32 push_minute)
{
    for_each_seen_device([&](device_record *dev) {
        for (u32 i = 0; i < dev->utl_num && i < limits_per_device; i++)
            dev->utl[i].alert_push_num = 0;
        for (int slot = 0; slot < apps_per_device; slot++) {
            if (dev->apps[slot].app_state == APP_USING)
                restart_session_at_day_end(dev, slot, pass, push_minute);
            else if (dev->apps[slot].app_state != APP_UNUSED)
                clear_session_at_day_end(dev->apps[slot]);
        }
    });
}

// During hour 23 the flag is set again at once, so that the evening pass repeats on each tick of its minute: an app that opens
// in that minute begins the new day too. All other sessions are one minute long by then, and the repeats arm nothing.
void run_day_end_passes(tick_state &state, local_time at)
{
    if (at.hour == 0 && at.minute == 0 && state.day_open) {
        close_day(day_end::midnight, my_get_rand() % midnight_push_minutes + 1);
        state.day_open = false;
    }
    if (at.hour == 23 && at.minute == 0 && state.day_open) {
        close_day(day_end::evening, evening_push_minute);
        state.day_open = false;
    }
    if (!state.day_open && (at.hour == 1 || at.hour == 23))
        state.day_open = true;
}

void close_silent_sessions(local_time at)
{
    for_each_seen_device([&](device_record *dev) {
        for (int hour : day_end_hours) {
            if (at.hour == hour && static_cast<u32>(at.minute) == dev->delay_push_rand_time)
                push_delay_history_time(dev);
        }
        for (int slot = 0; slot < apps_per_device; slot++) {
            if (dev->apps[slot].app_state == APP_USING && is_silent(dev->apps[slot]))
                close_session(dev, slot, closing::silence);
        }
    });
}

void refresh_catalogue(tick_state &state, u32 now)
{
    if (now <= state.appid_update_last_time || now - state.appid_update_last_time < catalogue_seconds)
        return;
    state.appid_update_last_time = now;
    del_role_protect();
    for_each_seen_device([](device_record *dev) {
        if (dev->utl_num != 0)
            update_new_app_ids(dev);
    });
}

void report_and_check_clock(tick_state &state, u32 now)
{
    if (now < state.last_time) {
        url_check_log(0, "now_time - last_time < 0  offline all using apps");
        process_offline_apps();
        state.last_time = now;
    } else if (now - state.last_time >= report_seconds) {
        push_using_app();
        list_device_time_axis_apps();
        state.last_time = now;
    }
}

} // namespace

tick_state start_ticking(void)
{
    u32 now = wall_clock();
    return {now, now, true};
}

void run_tick(tick_state &state)
{
    mutex_guard locked(device_apps_mtx);
    timeval clock = {};
    gettimeofday(&clock, nullptr);
    u32 now = static_cast<u32>(clock.tv_sec);
    local_time at = local_time_of(clock.tv_sec);
    forget_absent_devices();
    run_day_end_passes(state, at);
    step_cache_hit_record();
    close_silent_sessions(at);
    refresh_catalogue(state, now);
    report_and_check_clock(state, now);
    note_push_time(now);
    count(counter_ticks);
    show_counters();
}

void *app_ident_thread(void *)
{
    tick_state state = start_ticking();
    for (;;) {
        run_tick(state);
        sleep(tick_seconds);
    }
}

void step_cache_hit_record(void)
{
    for_each_seen_device([](device_record *dev) {
        for (app_ident_record &app : dev->apps) {
            if (app.app_state != APP_USING)
                continue;
            if (app.time_axis_app_state == APP_USING)
                push_daydayup_alert(dev, &app);
            age_session(app, wall_clock());
        }
        push_app_alert(dev);
    });
}

u32 my_get_rand(void)
{
    fd_guard source(open("/dev/urandom", O_RDONLY | O_CLOEXEC));
    u32 value = 0;
    if (source.get() < 0 || read(source.get(), &value, sizeof(value)) != static_cast<ssize_t>(sizeof(value)))
        return wall_clock();
    return value;
}
