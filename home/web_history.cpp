// What was and is in use: now, a day's timeline, sums, alerts, gaps, and all of it as a file.
#include "home/days.h"
#include "home/web_routes.h"
#include "home/web_state.h"
#include "platform/linux/client/limit_classes.h"

#include <algorithm>
#include <stdlib.h>
#include <time.h>
#include <tuple>

namespace {

constexpr int days_most = 3660;
constexpr size_t alerts_most = 1000;

// The day of the query, `otherwise` without one. False for what is no day.
bool query_day(const web_request &asked, const char *name, int otherwise, int *day)
{
    std::string text = query_value(asked, name);
    *day = text.empty() ? otherwise : read_day(text);
    return *day != 0;
}

// "from" and "to", today without them; `days_most` at most.
bool query_days(const web_request &asked, int *from, int *to)
{
    int today = day_of(asked.time);
    return query_day(asked, "to", today, to) && query_day(asked, "from", *to, from) && *from <= *to &&
           day_after(*to, -days_most) < *from; // backwards, as the clock of a 32-bit box ends in 2038
}

int64_t query_number(const web_request &asked, const char *name, int64_t otherwise, int64_t most)
{
    std::string text = query_value(asked, name);
    return text.empty() ? otherwise : std::min<int64_t>(std::max(strtoll(text.c_str(), nullptr, 10), 0ll), most);
}

// How far the box's clock is ahead of UTC during the day: at its start, and from each change of it on.
void add_clock(cJSON *root, int64_t start, int64_t end)
{
    constexpr int64_t step = 900; // clocks change at full quarters of an hour
    cJSON *list = cJSON_AddArrayToObject(root, "clock");
    long last = 0;
    for (int64_t at = start; at < end; at += step) {
        time_t moment = static_cast<time_t>(at);
        tm local = {};
        localtime_r(&moment, &local);
        if (at > start && local.tm_gmtoff == last)
            continue;
        last = local.tm_gmtoff;
        cJSON *item = add_item(list);
        add_number(item, "from", at);
        add_number(item, "ahead_seconds", last);
    }
}

void add_class_rows(cJSON *rows, const std::vector<use_row> &use, const known_names &known)
{
    struct sums {
        int64_t minutes = 0, bytes = 0;
    };
    std::map<std::tuple<int, int64_t, u32>, sums> by_class;
    for (const use_row &one : use) {
        u32 group = limit_class_of(static_cast<u32>(app_class(*known.apps, one.app)));
        sums &sum = by_class[{one.day, one.device, group}];
        sum.minutes += one.minutes;
        sum.bytes += one.up + one.down;
    }
    for (const auto &[key, sum] : by_class) {
        cJSON *row = add_item(rows);
        add_text(row, "day", day_text(std::get<0>(key)));
        add_text(row, "device", known.devices.find(std::get<1>(key))->second.mac);
        add_number(row, "class", std::get<2>(key));
        add_text(row, "class_name", class_name(std::get<2>(key)));
        add_number(row, "minutes", sum.minutes);
        add_number(row, "bytes", sum.bytes);
    }
}

void add_app_rows(cJSON *rows, const std::vector<use_row> &use, const known_names &known)
{
    for (const use_row &one : use) {
        cJSON *row = add_item(rows);
        add_text(row, "day", day_text(one.day));
        add_text(row, "device", known.devices.find(one.device)->second.mac);
        add_app(row, known, one.app);
        add_text(row, "class_name", class_name(limit_class_of(static_cast<u32>(app_class(*known.apps, one.app)))));
        add_number(row, "minutes", one.minutes);
        add_number(row, "bytes", one.up + one.down);
    }
}

// A field of a CSV file. Spreadsheets take what begins so for a formula, and names are whatever devices call themselves.
std::string csv_field(const std::string &text)
{
    std::string field = text.find_first_of("=+-@\t\r") == 0 ? "\"'" : "\"";
    for (char c : text)
        field += c == '"' ? std::string("\"\"") : std::string(1, c);
    return field + "\"";
}

void name_file(web_answer *answer, int from, int to, const char *end)
{
    answer->headers.push_back({"Content-Disposition", "attachment; filename=\"appident-" + day_text(from) +
                                                          (from == to ? "" : "-to-" + day_text(to)) + end + "\""});
}

} // namespace

void answer_now(web_request *asked, web_answer *answer)
{
    known_names known = names_for(*asked);
    json_tree body(cJSON_CreateObject());
    cJSON *list = cJSON_AddArrayToObject(body.get(), "now");
    for (const session &one : sessions_now(&asked->home->all.db)) {
        auto device = known.devices.find(one.device);
        if (device == known.devices.end())
            continue;
        cJSON *item = add_item(list);
        add_text(item, "device", device->second.mac);
        add_app(item, known, one.app);
        add_number(item, "start", one.start);
        add_number(item, "minutes", one.minutes);
    }
    cJSON_AddBoolToObject(body.get(), "daemon_up", asked->home->truth.answers);
    answer_with(answer, body);
}

void answer_timeline(web_request *asked, web_answer *answer)
{
    int day = 0;
    if (!query_day(*asked, "day", day_of(asked->time), &day))
        return refuse(answer, refused_bad_request);
    database *db = &asked->home->all.db;
    known_names known = names_for(*asked);
    int64_t start = day_start(day), end = day_end(day);
    json_tree body(cJSON_CreateObject());
    add_text(body.get(), "day", day_text(day));
    add_number(body.get(), "start", start);
    add_number(body.get(), "end", end);
    add_clock(body.get(), start, end);
    cJSON *devices = cJSON_AddArrayToObject(body.get(), "devices");
    for (const auto &entry : known.devices) {
        cJSON *item = add_item(devices);
        add_text(item, "mac", entry.second.mac);
        add_text(item, "name", entry.second.name);
    }
    add_sessions(body.get(), db, known, start, end);
    add_alerts(body.get(), db, known, start, end, alerts_most);
    add_gaps(body.get(), db, start, end);
    answer_with(answer, body);
}

void answer_use(web_request *asked, web_answer *answer)
{
    int from = 0, to = 0;
    std::string by = query_value(*asked, "by");
    if (!query_days(*asked, &from, &to) || (!by.empty() && by != "app" && by != "class"))
        return refuse(answer, refused_bad_request);
    known_names known = names_for(*asked);
    std::vector<use_row> use = use_between(&asked->home->all.db, from, to);
    use.erase(std::remove_if(use.begin(), use.end(), [&](const use_row &one) { return known.devices.count(one.device) == 0; }),
              use.end());
    json_tree body(cJSON_CreateObject());
    add_text(body.get(), "from", day_text(from));
    add_text(body.get(), "to", day_text(to));
    add_text(body.get(), "by", by == "class" ? "class" : "app");
    (by == "class" ? add_class_rows : add_app_rows)(cJSON_AddArrayToObject(body.get(), "rows"), use, known);
    answer_with(answer, body);
}

void answer_alerts(web_request *asked, web_answer *answer)
{
    constexpr int64_t usual = 100;
    json_tree body(cJSON_CreateObject());
    add_alerts(body.get(), &asked->home->all.db, names_for(*asked), query_number(*asked, "since", 0, INT64_MAX / 2), INT64_MAX,
               static_cast<size_t>(query_number(*asked, "most", usual, alerts_most)));
    answer_with(answer, body);
}

void answer_gaps(web_request *asked, web_answer *answer)
{
    int from = 0, to = 0;
    if (!query_days(*asked, &from, &to))
        return refuse(answer, refused_bad_request);
    json_tree body(cJSON_CreateObject());
    add_gaps(body.get(), &asked->home->all.db, day_start(from), day_end(to));
    answer_with(answer, body);
}

void answer_export_json(web_request *asked, web_answer *answer)
{
    int from = 0, to = 0;
    if (!query_days(*asked, &from, &to))
        return refuse(answer, refused_bad_request);
    database *db = &asked->home->all.db;
    known_names known = names_for(*asked);
    json_tree body(cJSON_CreateObject());
    add_sessions(body.get(), db, known, day_start(from), day_end(to));
    add_days(body.get(), db, known, from, to);
    add_alerts(body.get(), db, known, day_start(from), day_end(to), SIZE_MAX);
    add_gaps(body.get(), db, day_start(from), day_end(to));
    answer_with(answer, body);
    name_file(answer, from, to, ".json");
}

void answer_export_csv(web_request *asked, web_answer *answer)
{
    int from = 0, to = 0;
    if (!query_days(*asked, &from, &to))
        return refuse(answer, refused_bad_request);
    known_names known = names_for(*asked);
    // Without the mark at its beginning spreadsheets take the file for another encoding than UTF-8.
    answer->text = "\xEF\xBB\xBF"
                   "day,device,name,person,app,app_name,class,minutes,bytes\r\n";
    for (const use_row &one : use_between(&asked->home->all.db, from, to)) {
        auto entry = known.devices.find(one.device);
        if (entry == known.devices.end())
            continue;
        u32 group = limit_class_of(static_cast<u32>(app_class(*known.apps, one.app)));
        answer->text += day_text(one.day) + "," + entry->second.mac + "," + csv_field(entry->second.name) + "," +
                        csv_field(entry->second.person_name) + "," + std::to_string(one.app) + "," +
                        csv_field(app_name(*known.apps, one.app)) + "," + csv_field(group ? class_name(group) : "") + "," +
                        std::to_string(one.minutes) + "," + std::to_string(one.up + one.down) + "\r\n";
    }
    answer->type = "text/csv; charset=utf-8";
    name_file(answer, from, to, ".csv");
}
