#include "simulator/session_model.h"

#include <algorithm>

namespace {

constexpr u32 game_class = 1;
constexpr u32 window_minutes = 3;

void report(const device_model &device, const app_model &app, outcome_kind kind, u32 minutes, moment now,
            std::vector<outcome> &out)
{
    bool shown = kind == outcome_history ? device.role >= 0 : device.role >= 1;
    if (shown)
        out.push_back({kind, device.index, app.id, minutes, now, app.axis_start});
}

// A session of one minute is told to nobody's history.
void leave_axis(device_model &device, app_model &app, moment now, std::vector<outcome> &out)
{
    u32 counted = app.axis_minutes - 1;
    app.on_axis = false;
    app.day_minutes += counted;
    report(device, app, outcome_offline, counted, now, out);
    if (counted > 0)
        report(device, app, outcome_history, counted, now, out);
}

void enter_axis(device_model &device, app_model &app, moment now, std::vector<outcome> &out)
{
    app.on_axis = true;
    app.axis_start = now;
    app.axis_minutes = 1;
    report(device, app, outcome_online, 0, now, out);
}

app_model *axis_holder(device_model &device, const app_model &other_than)
{
    for (app_model &app : device.apps)
        if (app.on_axis && app.id != other_than.id)
            return &app;
    return nullptr;
}

bool is_game(device_model &device, u32 app)
{
    return counts_app(limit_of_class(device, game_class), app);
}

app_model &find_app(device_model &device, u32 id)
{
    auto found = std::find_if(device.apps.begin(), device.apps.end(), [id](const app_model &app) { return app.id == id; });
    return *found;
}

void open_session(device_model &device, app_model &app, moment now, std::vector<outcome> &out)
{
    app.open = true;
    app.start = now;
    app.minutes = app.window_minute = 1;
    app.heard[0] = true;
    app.eye_alerts = 0;
    app.daydayup_alerted = false;
    app_model *holder = axis_holder(device, app);
    enter_axis(device, app, now, out);
    if (holder)
        leave_axis(device, *holder, now, out);
}

// The first three minutes fill the window from its start; from then on the current minute is its last place.
void move_window(app_model &app, u32 minute)
{
    for (; app.window_minute < minute; app.window_minute++)
        if (app.window_minute >= window_minutes) {
            app.heard[0] = app.heard[1];
            app.heard[1] = app.heard[2];
            app.heard[2] = false;
        }
}

// In an open session only a game's first message may take the axis from another app, and only from one that is no game.
void keep_session(device_model &device, app_model &app, bool starting, moment now, std::vector<outcome> &out)
{
    app_model *holder = axis_holder(device, app);
    if (!app.on_axis && !holder) {
        enter_axis(device, app, now, out);
        app.eye_alerts = 0;
        app.daydayup_alerted = false;
    } else if (!app.on_axis && starting && is_game(device, app.id) && !is_game(device, holder->id)) {
        leave_axis(device, *holder, now, out);
        enter_axis(device, app, now, out);
    }
    if (now <= app.start)
        return;
    app.minutes = begun_minutes(app.start, now);
    move_window(app, app.minutes);
    app.heard[std::min(app.minutes, window_minutes) - 1] = true;
    if (app.on_axis)
        app.axis_minutes = std::max(app.axis_minutes, begun_minutes(app.axis_start, now));
}

} // namespace

u32 begun_minutes(moment from, moment to)
{
    return to > from ? static_cast<u32>((to - from + 59) / 60) : 0;
}

limit_model *limit_of_class(device_model &device, u32 class_type)
{
    for (limit_model &limit : device.limits)
        if (limit.set.class_type == class_type)
            return &limit;
    return nullptr;
}

bool counts_app(const limit_model *limit, u32 app)
{
    return limit && std::find(limit->set.apps.begin(), limit->set.apps.end(), app) != limit->set.apps.end();
}

void model_hit(device_model &device, u32 id, bool starting, moment now, std::vector<outcome> &out)
{
    bool known = std::any_of(device.apps.begin(), device.apps.end(), [id](const app_model &app) { return app.id == id; });
    if (!known && !starting)
        return;
    if (!known) {
        device.apps.emplace_back();
        device.apps.back().id = id;
    }
    app_model &app = find_app(device, id);
    if (app.open)
        keep_session(device, app, starting, now, out);
    else if (starting)
        open_session(device, app, now, out);
}

void model_silence(device_model &device, moment now, std::vector<outcome> &out)
{
    for (app_model &app : device.apps) {
        if (!app.open)
            continue;
        move_window(app, begun_minutes(app.start, now));
        if (app.heard[0] || app.heard[1] || app.heard[2])
            continue;
        app.open = false;
        app.ended = app.start + (app.minutes < 2 ? 60 * app.minutes : 60 * app.minutes - 60);
        if (!app.on_axis)
            continue;
        bool short_one = app.axis_minutes < 2;
        leave_axis(device, app, now, out);
        if (short_one)
            app.day_minutes = 0;
    }
}

void model_absence(device_model &device, moment now, std::vector<outcome> &out)
{
    if (device.active)
        model_delayed_report(device, now, out);
    for (app_model &app : device.apps)
        if (app.on_axis)
            leave_axis(device, app, now, out);
    device.apps.clear();
    device.limits.clear();
    device.tracked = device.active = false;
}

// The window is left as it is: what was heard before the day's end keeps a restarted session open a little longer.
void model_day_end(device_model &device, moment now)
{
    for (limit_model &limit : device.limits)
        limit.alerted = 0;
    for (app_model &app : device.apps) {
        app.day_minutes = 0;
        app.ended = 0;
        if (!app.open)
            continue;
        if (app.on_axis && app.axis_minutes > 1)
            device.delayed = {outcome_late_history, device.index, app.id, app.axis_minutes - 1, now, app.axis_start};
        if (app.on_axis) {
            app.axis_start = now;
            app.axis_minutes = 1;
        }
        app.minutes = app.window_minute = 1;
        app.start = now;
        app.eye_alerts = 0;
    }
}

void model_delayed_report(device_model &device, moment now, std::vector<outcome> &out)
{
    if (device.delayed.subject == 0 || device.role < 1)
        return;
    device.delayed.at = now;
    out.push_back(device.delayed);
    device.delayed = {};
}
