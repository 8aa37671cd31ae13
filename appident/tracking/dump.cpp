#include "appident/tracking/dump.h"

#include "appident/model/bounded_text.h"
#include "appident/model/records.h"
#include "appident/model/session_time.h"
#include "appident/router/device_service.h"
#include "common/log.h"

#include <stdio.h>

namespace {

unsigned long long printable(u64 count)
{
    return static_cast<unsigned long long>(count);
}

void dump_rules(const app_ident_record &app)
{
    char text[2048];
    bounded_text list = make_bounded_text(text, sizeof(text));
    // Read only; the list macros walk mutable links.
    auto *head = const_cast<list_head *>(&app.rule_list_head);
    list_for_each(node, head) {
        char piece[20];
        snprintf(piece, sizeof(piece), "%u,", list_entry(node, rule_record, node)->rule_id);
        append_whole(list, piece);
    }
    url_check_log(0, "\t\t\tRULE ID: %s", text);
}

// The minutes of the window by their place in the session: 1 to 3 at first, later the latest three.
void dump_minutes(const app_ident_record &app)
{
    for (int i = 0; i < minutes_in_window; i++) {
        const hit_record &minute = app.hit_records[i];
        u32 latest = app.time_axis_period_time - minutes_in_window;
        if (app.time_axis_period_time < 4)
            url_check_log(0, "\t\t\t%d minute, hit_times: %u, up_bytes: %llu, down_bytes: %llu\n", i + 1, minute.hit_times,
                          printable(minute.up_bytes), printable(minute.down_bytes));
        else
            url_check_log(0, "\t\t\t%u minute, hit_times: %u, up_bytes: %llu, down_bytes: %llu\n",
                          latest + static_cast<u32>(i) + 1, minute.hit_times, printable(minute.up_bytes),
                          printable(minute.down_bytes));
    }
}

void dump_app(const app_ident_record &app, int slot)
{
    if (app.time_axis_app_state == APP_USING)
        url_check_log(0,
                      "\t\tAPP ID: %u, up_bytes: %llu, down_bytes: %llu, start_time:%ld, history_sumtime: %u, "
                      "time_axis_period_time = %dm, use time: %um, app[%d]",
                      app.app_id, printable(app.up_bytes), printable(app.down_bytes),
                      static_cast<long>(app.time_axis_start_time), app.time_axis_sum_time,
                      static_cast<int>(app.time_axis_period_time), counted_minutes(app.time_axis_period_time), slot);
    else if (app.time_axis_sum_time != 0)
        url_check_log(0, "\t\tAPP ID: %u, up_bytes: %llu, down_bytes: %llu, history_sumtime: %u, use time: %um", app.app_id,
                      printable(app.up_bytes), printable(app.down_bytes), app.time_axis_sum_time, app.time_axis_period_time);
    else
        return;
    dump_rules(app);
    dump_minutes(app);
}

} // namespace

void list_device_time_axis_apps(void)
{
    int devices = 0;
    url_check_log(0, "[appident] ========================================================");
    list_for_each(node, &device_apps_head) {
        const device_record &dev = *device_of(node);
        devices++;
        if (dev.device_state == device_listed)
            continue;
        url_check_log(0, "\tdevice: %s, ip: %s role:%d", dev.mac, dev.ip, get_device_role(dev.mac));
        for (int slot = 0; slot < apps_per_device; slot++)
            dump_app(dev.apps[slot], slot);
    }
    url_check_log(0, "list count:%d", devices);
}
