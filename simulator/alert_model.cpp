#include "simulator/alert_model.h"

#include "common/accounting_format.h"

#include <algorithm>

namespace {

constexpr u32 eye_class = 5, study_class = 4;

bool sums_up(u32 class_type)
{
    return class_type >= 1 && class_type <= 3;
}

u32 minutes_of_class(const device_model &device, const limit_model &limit)
{
    u32 sum = 0;
    for (const app_model &app : device.apps)
        if (counts_app(&limit, app.id))
            sum += app.day_minutes + (app.on_axis ? app.axis_minutes - 1 : 0);
    return sum;
}

void raise_class_alert(device_model &device, limit_model &limit, moment now, std::vector<outcome> &out)
{
    u32 times = limit.set.minutes ? minutes_of_class(device, limit) / limit.set.minutes : 0;
    if (times <= limit.alerted)
        return;
    limit.alerted = times;
    out.push_back({outcome_addiction, device.index, limit.set.class_type, times * limit.set.minutes, now, 0});
}

void raise_eye_alerts(device_model &device, const limit_model &limit, moment now, std::vector<outcome> &out)
{
    for (app_model &app : device.apps) {
        u32 times = app.on_axis && limit.set.minutes ? (app.axis_minutes - 1) / limit.set.minutes : 0;
        if (times <= app.eye_alerts)
            continue;
        app.eye_alerts = times;
        out.push_back({outcome_eye_protection, device.index, app.id, times * limit.set.minutes, now, app.axis_start});
    }
}

// A pause of less than an hour is no new start.
void raise_study_alerts(device_model &device, moment now, std::vector<outcome> &out)
{
    const limit_model *limit = limit_of_class(device, study_class);
    for (app_model &app : device.apps) {
        bool new_start = app.ended == 0 || now - app.ended >= 3600;
        if (!limit || !limit->set.on || !counts_app(limit, app.id) || !app.open || !app.on_axis || app.daydayup_alerted ||
            app.axis_minutes < 2 || !new_start)
            continue;
        app.daydayup_alerted = true;
        out.push_back({outcome_daydayup, device.index, app.id, 0, now, app.axis_start});
    }
}

// A rule with the start mark, a major one, says how many rules make a payment: itself alone, or itself and others beside it.
bool is_payment(const std::vector<std::pair<u32, moment>> &rules)
{
    u32 needed = 0, majors = 0;
    for (const auto &[rule, when] : rules) {
        majors += (rule & start_mark) != 0;
        if ((rule & start_mark) && needed == 0)
            needed = rule >> 16 & 0xFF;
    }
    bool mixed = majors > 0 && majors < rules.size();
    return !rules.empty() && rules.size() >= needed && (needed == 1 || (needed >= 2 && mixed));
}

void raise_payment_alerts(const device_model &device, payment_model &payments, payment_gate &gate, moment now,
                          std::vector<outcome> &out)
{
    constexpr u32 pay_codes[] = {2, 1, 3};
    for (int i = 0; i < 3; i++) {
        payment_watch &watch = payments.watches[i];
        auto stale = [now](const auto &rule) { return now - rule.second >= 31; };
        watch.rules.erase(std::remove_if(watch.rules.begin(), watch.rules.end(), stale), watch.rules.end());
        if ((i == 0 && !gate.open) || !is_payment(watch.rules))
            continue;
        if (now - watch.last_alert >= 21) {
            out.push_back({outcome_payment, device.index, pay_codes[i], 0, now, 0});
            watch.last_alert = now;
            gate.open = gate.open && i != 0;
        }
        watch.rules.clear();
    }
}

} // namespace

void count_flow(payment_gate &gate, moment now)
{
    if (now - gate.since > 60)
        gate = {0, now, false};
    if (++gate.flows > 1)
        gate = {0, now, true};
}

void note_payment_rule(payment_model &payments, u32 service, u32 rule, moment now)
{
    if (service < counted_payment_service || service > counted_payment_service + 2)
        return;
    auto &rules = payments.watches[service - counted_payment_service].rules;
    auto known = std::find_if(rules.begin(), rules.end(), [rule](const auto &seen) { return seen.first == rule; });
    if (known != rules.end())
        known->second = now;
    else
        rules.emplace_back(rule, now);
}

void merge_limits(std::vector<use_limit> &stored, const std::vector<use_limit> &set)
{
    for (const use_limit &limit : set) {
        auto same = [&limit](const use_limit &old) { return old.class_type == limit.class_type; };
        stored.erase(std::remove_if(stored.begin(), stored.end(), same), stored.end());
        stored.push_back(limit);
    }
}

// Multiples that were already used up when a limit is set raise no alert any more.
void apply_limits(device_model &device, const std::vector<use_limit> &stored)
{
    for (const use_limit &limit : stored) {
        limit_model *known = limit_of_class(device, limit.class_type);
        if (!known) {
            device.limits.push_back({limit, 0});
            known = &device.limits.back();
        } else {
            std::vector<u32> apps = limit.apps.empty() ? known->set.apps : limit.apps;
            known->set = limit;
            known->set.apps = apps;
        }
        u32 used = known->set.minutes ? minutes_of_class(device, *known) / known->set.minutes : 0;
        if (known->set.on && sums_up(limit.class_type) && device.role == 1 && used > 0)
            known->alerted = used;
    }
}

void count_new_app(device_model &device, std::vector<use_limit> &stored, const app_entry &app)
{
    static constexpr u32 big_classes[] = {0, 1, 3, 2, 2, 2, 3, 3, 3, 3, 4, 0, 0, 3, 3};
    u32 big = app.small_class < sizeof big_classes / sizeof big_classes[0] ? big_classes[app.small_class] : 0;
    limit_model *limit = limit_of_class(device, big);
    if (!big || !limit || counts_app(limit, app.id))
        return;
    limit->set.apps.push_back(app.id);
    for (use_limit &kept : stored)
        if (kept.class_type == big)
            kept.apps.push_back(app.id);
}

void raise_alerts(device_model &device, payment_model &payments, payment_gate &gate, moment now, std::vector<outcome> &out)
{
    if (device.role == 1)
        raise_study_alerts(device, now, out);
    if (device.limits.empty() || device.role < 1)
        return;
    raise_payment_alerts(device, payments, gate, now, out);
    if (device.role != 1)
        return;
    for (limit_model &limit : device.limits) {
        if (limit.set.on && limit.set.class_type == eye_class)
            raise_eye_alerts(device, limit, now, out);
        if (limit.set.on && sums_up(limit.set.class_type))
            raise_class_alert(device, limit, now, out);
    }
}
