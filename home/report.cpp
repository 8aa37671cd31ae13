#include "home/report.h"

#include "home/days.h"
#include "home/history_json.h"

#include <stdio.h>
#include <time.h>

namespace {

constexpr int first_day = 19710101, last_day = 99981231;

struct report_scope {
    int from_day, to_day;
    int64_t from, to; // epoch seconds
};

void add_devices(cJSON *root, const known_names &known)
{
    cJSON *list = cJSON_AddArrayToObject(root, "devices");
    for (const auto &entry : known.devices) {
        cJSON *item = add_item(list);
        add_text(item, "device", entry.second.mac);
        add_text(item, "name", entry.second.name);
        if (entry.second.role >= 0)
            add_number(item, "role", entry.second.role);
    }
}

void print_json(history *of, const known_names &known, const report_scope &scope)
{
    json_tree root(cJSON_CreateObject());
    add_number(root.get(), "kept_since", history_since(&of->db));
    add_number(root.get(), "kept_up_to", of->place.last_time);
    add_devices(root.get(), known);
    add_sessions(root.get(), &of->db, known, scope.from, scope.to);
    add_days(root.get(), &of->db, known, scope.from_day, scope.to_day);
    add_alerts(root.get(), &of->db, known, scope.from, scope.to, SIZE_MAX);
    add_gaps(root.get(), &of->db, scope.from, scope.to);
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
        printf("\nPushes lost: %lld.\n", static_cast<long long>(lost));
}

} // namespace

void print_report(history *of, const app_names &apps, int from, int to, bool json)
{
    report_scope scope = {first_day, last_day, 0, INT64_MAX / 2};
    if (from)
        scope = {from, to, day_start(from), day_end(to)};
    known_names known = all_names(&of->db, apps);
    (json ? print_json : print_table)(of, known, scope);
}
