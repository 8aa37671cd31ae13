#include "home/report.h"

#include "common/guards.h"
#include "home/alerts.h"
#include "home/days.h"
#include "home/queries.h"

#include <stdio.h>
#include <time.h>

namespace {

constexpr int first_day = 19710101, last_day = 99981231;

struct report_scope {
    int from_day, to_day;
    int64_t from, to; // epoch seconds
};

struct known_names {
    std::map<int64_t, known_device> devices;
    const app_names *apps;
};

void add_number(cJSON *to, const char *key, int64_t value)
{
    cJSON_AddNumberToObject(to, key, static_cast<double>(value));
}

cJSON *add_item(cJSON *list)
{
    cJSON *item = cJSON_CreateObject();
    cJSON_AddItemToArray(list, item);
    return item;
}

void add_subject(cJSON *to, const known_names &known, int64_t device, u32 app)
{
    auto entry = known.devices.find(device);
    cJSON_AddStringToObject(to, "device", entry == known.devices.end() ? "" : entry->second.mac.c_str());
    if (app == 0)
        return;
    add_number(to, "app", app);
    cJSON_AddStringToObject(to, "app_name", app_name(*known.apps, app).c_str());
}

void add_bytes(cJSON *to, int64_t up, int64_t down)
{
    add_number(to, "bytes", up + down);
    add_number(to, "up_bytes", up);
    add_number(to, "down_bytes", down);
}

void add_devices(cJSON *root, const known_names &known)
{
    cJSON *list = cJSON_AddArrayToObject(root, "devices");
    for (const auto &entry : known.devices) {
        cJSON *item = add_item(list);
        cJSON_AddStringToObject(item, "device", entry.second.mac.c_str());
        cJSON_AddStringToObject(item, "name", entry.second.name.c_str());
        if (entry.second.role >= 0)
            add_number(item, "role", entry.second.role);
    }
}

void add_sessions(cJSON *root, history *of, const known_names &known, const report_scope &scope)
{
    cJSON *list = cJSON_AddArrayToObject(root, "sessions");
    for (const session &one : sessions_between(&of->db, scope.from, scope.to)) {
        cJSON *item = add_item(list);
        add_subject(item, known, one.device, one.app);
        add_number(item, "start", one.start);
        add_number(item, "end", one.end);
        add_number(item, "minutes", one.minutes);
        add_bytes(item, one.up, one.down);
        cJSON_AddStringToObject(item, "state", state_name(one.state));
    }
}

void add_days(cJSON *root, history *of, const known_names &known, const report_scope &scope)
{
    cJSON *list = cJSON_AddArrayToObject(root, "days");
    for (const use_row &one : use_between(&of->db, scope.from_day, scope.to_day)) {
        cJSON *item = add_item(list);
        cJSON_AddStringToObject(item, "day", day_text(one.day).c_str());
        add_subject(item, known, one.device, one.app);
        add_number(item, "minutes", one.minutes);
        add_bytes(item, one.up, one.down);
    }
}

void add_alerts(cJSON *root, history *of, const known_names &known, const report_scope &scope)
{
    cJSON *list = cJSON_AddArrayToObject(root, "alerts");
    for (const alert_row &one : alerts_since(&of->db, scope.from, -1)) {
        if (one.time >= scope.to)
            break;
        cJSON *item = add_item(list);
        add_number(item, "time", one.time);
        add_subject(item, known, one.device, one.app);
        cJSON_AddStringToObject(item, "kind", alert_name(one.kind));
        add_number(item, "class", one.category);
        add_number(item, "amount", one.amount);
    }
}

void add_gaps(cJSON *root, history *of, const report_scope &scope)
{
    cJSON *list = cJSON_AddArrayToObject(root, "gaps");
    for (const gap_row &one : gaps_between(&of->db, scope.from, scope.to)) {
        cJSON *item = add_item(list);
        add_number(item, "start", one.start);
        add_number(item, "end", one.end);
        add_number(item, "lost", one.lost);
        cJSON_AddStringToObject(item, "why", one.why.c_str());
    }
}

void print_json(history *of, const known_names &known, const report_scope &scope)
{
    json_tree root(cJSON_CreateObject());
    add_number(root.get(), "kept_since", history_since(&of->db));
    add_number(root.get(), "kept_up_to", of->place.last_time);
    add_devices(root.get(), known);
    add_sessions(root.get(), of, known, scope);
    add_days(root.get(), of, known, scope);
    add_alerts(root.get(), of, known, scope);
    add_gaps(root.get(), of, scope);
    cJSON *counts = cJSON_AddObjectToObject(root.get(), "counts");
    for (int which = 0; which < count_end; ++which)
        add_number(counts, count_name(static_cast<home_count>(which)), of->counts[static_cast<size_t>(which)]);
    heap_text text(cJSON_PrintUnformatted(root.get()));
    if (text)
        puts(text.get());
}

std::string clock_text(int64_t time)
{
    time_t at = static_cast<time_t>(time);
    tm local = {};
    char text[16] = "";
    if (localtime_r(&at, &local))
        strftime(text, sizeof(text), "%H:%M", &local);
    return text;
}

std::string label_of(const known_names &known, int64_t device)
{
    auto entry = known.devices.find(device);
    if (entry == known.devices.end())
        return "?";
    return entry->second.name.empty() ? entry->second.mac : entry->second.mac + " " + entry->second.name;
}

void print_table(history *of, const known_names &known, const report_scope &scope)
{
    puts("Sessions");
    for (const session &one : sessions_between(&of->db, scope.from, scope.to))
        printf("%s %s - %s  %4lld min  %10lld bytes  %-8s  %s  %s\n", day_text(day_of(one.start)).c_str(),
               clock_text(one.start).c_str(), clock_text(one.end).c_str(), static_cast<long long>(one.minutes),
               static_cast<long long>(one.up + one.down), state_name(one.state), label_of(known, one.device).c_str(),
               app_name(*known.apps, one.app).c_str());
    puts("\nSums");
    for (const use_row &one : use_between(&of->db, scope.from_day, scope.to_day))
        printf("%s  %4lld min  %10lld bytes  %s  %s\n", day_text(one.day).c_str(), static_cast<long long>(one.minutes),
               static_cast<long long>(one.up + one.down), label_of(known, one.device).c_str(),
               app_name(*known.apps, one.app).c_str());
    int64_t lost = of->counts[count_lost];
    if (lost > 0)
        printf("\n%lld pushes were lost.\n", static_cast<long long>(lost));
}

} // namespace

void print_report(history *of, const app_names &apps, int from, int to, bool json)
{
    report_scope scope = {first_day, last_day, 0, INT64_MAX / 2};
    if (from)
        scope = {from, to, day_start(from), day_end(to)};
    known_names known = {{}, &apps};
    for (const known_device &one : list_devices(&of->db))
        known.devices[one.id] = one;
    (json ? print_json : print_table)(of, known, scope);
}
