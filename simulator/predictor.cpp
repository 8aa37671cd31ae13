#include "simulator/predictor.h"

#include "simulator/alert_model.h"
#include "simulator/session_model.h"

#include "common/accounting_format.h"

#include <algorithm>
#include <set>
#include <tuple>

namespace {

constexpr moment start_up = 20, tick_every = 3, catalogue_every = 20 * 60;

struct household_model {
    const scenario &household;
    std::vector<device_model> devices;
    std::vector<payment_model> payments;
    // The stored settings of each device, and the apps that its copy of the catalogue has.
    std::vector<std::vector<use_limit>> stored;
    std::vector<std::set<u32>> catalogued;
    payment_gate gate;
    bool day_open = true;
    moment refreshed = 0;
    std::vector<outcome> out;
};

std::set<u32> known_apps(const scenario &household, moment now)
{
    std::set<u32> known;
    for (const app_entry &app : household.apps)
        if (app.known_from <= now)
            known.insert(app.id);
    return known;
}

void load_limits(household_model &model, device_model &device, moment now)
{
    size_t index = static_cast<size_t>(device.index);
    if (model.stored[index].empty())
        return;
    if (model.catalogued[index].empty())
        model.catalogued[index] = known_apps(model.household, now);
    apply_limits(device, model.stored[index]);
}

void wake(household_model &model, device_model &device, moment now)
{
    if (device.active)
        return;
    device.active = true;
    load_limits(model, device, now);
    model.payments[static_cast<size_t>(device.index)] = {};
}

void take_event(household_model &model, const household_event &event, moment now)
{
    size_t index = static_cast<size_t>(event.device);
    device_model &device = model.devices[index];
    if (event.kind == event_role) {
        device.role = static_cast<int>(event.number);
    } else if (event.kind == event_online) {
        device.tracked = device.tracked || device.role > 0;
    } else if (event.kind == event_offline) {
        model_absence(device, now, model.out);
    } else if (event.kind == event_limits) {
        merge_limits(model.stored[index], event.limits);
        load_limits(model, device, now);
    } else if (event.kind == event_ask) {
        size_t before = model.out.size();
        for (const app_model &app : device.apps)
            if (app.on_axis && app.axis_minutes > 1 && device.role > 0)
                model.out.push_back({outcome_answer, device.index, app.id, app.axis_minutes - 1, now, app.axis_start});
        if (model.out.size() == before)
            model.out.push_back({outcome_answer, device.index, 0, 0, now, 0});
    }
}

void take_step(household_model &model, const step &action, moment now)
{
    if (action.kind == step_catalogue)
        return;
    if (action.kind == step_event)
        return take_event(model, *action.event, now);
    if (action.kind == step_hit && is_payment_flow(action.app)) {
        if (action.app == counted_payment_service)
            count_flow(model.gate, now);
        return;
    }
    device_model &device = model.devices[static_cast<size_t>(action.device)];
    if (!device.tracked)
        return;
    wake(model, device, now);
    if (action.kind == step_hit)
        model_hit(device, action.app, (action.rule & start_mark) != 0, now, model.out);
    else
        note_payment_rule(model.payments[static_cast<size_t>(action.device)], action.app, action.rule, now);
}

void end_of_day(household_model &model, moment now)
{
    moment minute = now / 60 % (24 * 60), hour = minute / 60;
    if ((minute == 0 || minute == 23 * 60) && model.day_open) {
        for (device_model &device : model.devices)
            if (device.active)
                model_day_end(device, now);
        model.day_open = false;
    }
    if (!model.day_open && (hour == 1 || hour == 23))
        model.day_open = true;
}

// Apps that the catalogue gained count in a limit of their class; devices without a role are let go.
void refresh(household_model &model, moment now)
{
    std::set<u32> known = known_apps(model.household, now);
    for (device_model &device : model.devices) {
        size_t index = static_cast<size_t>(device.index);
        if (device.active && device.role == 0) {
            model_absence(device, now, model.out);
            model.stored[index].clear();
            model.catalogued[index].clear();
        }
        if (!device.active || device.limits.empty())
            continue;
        for (const app_entry &app : model.household.apps)
            if (known.count(app.id) && !model.catalogued[index].count(app.id))
                count_new_app(device, model.stored[index], app);
        model.catalogued[index] = known;
    }
    model.refreshed = now;
}

void tick(household_model &model, moment now)
{
    end_of_day(model, now);
    for (device_model &device : model.devices) {
        if (!device.active)
            continue;
        raise_alerts(device, model.payments[static_cast<size_t>(device.index)], model.gate, now, model.out);
        moment minute = now / 60 % (24 * 60);
        // After midnight the minute is drawn by lot; the first will do, as nothing else comes of the choice.
        if (minute == 1 || minute == 23 * 60 + 1)
            model_delayed_report(device, now, model.out);
        model_silence(device, now, model.out);
    }
    if (now - model.refreshed >= catalogue_every)
        refresh(model, now);
}

std::vector<std::tuple<int, int, u32, u32>> without_times(const std::vector<outcome> &list)
{
    std::vector<std::tuple<int, int, u32, u32>> bare;
    for (const outcome &one : list)
        bare.emplace_back(one.kind, one.device, one.subject, one.amount);
    std::stable_sort(bare.begin(), bare.end(), [](const auto &a, const auto &b) {
        return std::tie(std::get<0>(a), std::get<1>(a), std::get<2>(a)) <
               std::tie(std::get<0>(b), std::get<1>(b), std::get<2>(b));
    });
    return bare;
}

} // namespace

std::vector<outcome> predict(const scenario &household, const std::vector<step> &plan, int lateness)
{
    size_t count = household.devices.size();
    household_model model{household,
                          {},
                          std::vector<payment_model>(count),
                          std::vector<std::vector<use_limit>>(count),
                          std::vector<std::set<u32>>(count),
                          {},
                          true,
                          household.start + start_up,
                          {}};
    for (size_t i = 0; i < count; i++) {
        device_model device;
        device.index = static_cast<int>(i);
        device.role = household.devices[i].role;
        device.tracked = household.devices[i].online && device.role > 0;
        model.devices.push_back(device);
    }
    moment next_tick = household.start + start_up;
    for (size_t i = 0; i <= plan.size(); i++) {
        moment now = i == plan.size() ? household.end : plan[i].at + (i % 2 ? lateness : 0);
        for (; next_tick <= now; next_tick += tick_every)
            tick(model, next_tick);
        if (i < plan.size())
            take_step(model, plan[i], now);
    }
    return model.out;
}

bool same_outcomes(const std::vector<outcome> &a, const std::vector<outcome> &b)
{
    return without_times(a) == without_times(b);
}
