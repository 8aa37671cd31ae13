// history: what a device used on a day or in a week, from what appident-home keeps.
#include "tools/appidentctl/commands.h"
#include "tools/appidentctl/exit_codes.h"
#include "tools/appidentctl/json_file.h"
#include "tools/appidentctl/kept_history.h"
#include "tools/appidentctl/operand.h"
#include "tools/appidentctl/table.h"
#include "tools/appidentctl/time_text.h"

#include <stdio.h>
#include <string.h>

namespace {

constexpr int days_of_a_week = 7;

enum history_form { by_session, by_app, by_class };

// A session, or the sum of a day.
struct used {
    std::string day, state;
    time_t start, end;
    u32 app_id, class_type;
    double minutes, bytes;
};

struct history_view {
    history_form form;
    bool week;
    std::string mac, device, from, until;
    std::vector<used> rows;
    const cJSON *report;
};

bool read_form(const command_line &line, history_view *view)
{
    const char *words = line.value[option_by];
    view->form = !words ? by_session : strcmp(words, "app") == 0 ? by_app : by_class;
    view->week = given(line, option_week);
    const char *wrong = nullptr;
    if (view->form == by_class && strcmp(words, "class") != 0)
        wrong = "--by wants app or class";
    else if (view->week && given(line, option_day))
        wrong = "--day and --week do not go together";
    else if (given(line, option_csv) && given(line, option_json))
        wrong = "--csv and --json do not go together";
    else if (given(line, option_day) && !is_date(line.value[option_day]))
        wrong = "--day wants a date such as 2026-11-22";
    if (wrong)
        usage_error(line, "%s", wrong);
    return !wrong;
}

// Those of the device; with by_class, the apps of a day and class as one.
std::vector<used> read_rows(const household &known, const cJSON *report, const history_view &view)
{
    std::vector<used> rows;
    const cJSON *item = nullptr;
    cJSON_ArrayForEach(item, cJSON_GetObjectItem(report, view.form == by_session ? "sessions" : "days")) {
        if (json_text(item, "device") != view.mac)
            continue;
        u32 app_id = static_cast<u32>(json_number(item, "app", 0));
        used one = {json_text(item, "day"),
                    json_text(item, "state"),
                    static_cast<time_t>(json_number(item, "start", 0)),
                    static_cast<time_t>(json_number(item, "end", 0)),
                    view.form == by_class ? 0 : app_id,
                    class_of_app(known, app_id),
                    json_number(item, "minutes", 0),
                    json_number(item, "bytes", 0)};
        used *same = nullptr;
        for (used &before : rows)
            if (view.form == by_class && before.day == one.day && before.class_type == one.class_type)
                same = &before;
        if (same) {
            same->minutes += one.minutes;
            same->bytes += one.bytes;
        } else {
            rows.push_back(one);
        }
    }
    return rows;
}

void print_as_json(const household &known, const history_view &view)
{
    json_tree root(cJSON_CreateObject());
    cJSON_AddStringToObject(root.get(), "mac", view.mac.c_str());
    cJSON_AddStringToObject(root.get(), "device", view.device.c_str());
    cJSON_AddStringToObject(root.get(), "from", view.from.c_str());
    cJSON_AddStringToObject(root.get(), "until", view.until.c_str());
    for (const char *key : {"kept_since", "kept_up_to"})
        cJSON_AddNumberToObject(root.get(), key, json_number(view.report, key, 0));
    cJSON *list = cJSON_AddArrayToObject(root.get(), view.form == by_session ? "sessions" : "days");
    for (const used &one : view.rows) {
        cJSON *item = cJSON_CreateObject();
        if (view.form == by_session) {
            cJSON_AddNumberToObject(item, "start", static_cast<double>(one.start));
            cJSON_AddNumberToObject(item, "end", static_cast<double>(one.end));
            cJSON_AddStringToObject(item, "state", one.state.c_str());
        } else {
            cJSON_AddStringToObject(item, "day", one.day.c_str());
        }
        if (view.form != by_class) {
            cJSON_AddNumberToObject(item, "app_id", one.app_id);
            cJSON_AddStringToObject(item, "app", app_name(known, one.app_id).c_str());
        }
        cJSON_AddNumberToObject(item, "class_type", one.class_type);
        cJSON_AddStringToObject(item, "class", class_name(one.class_type));
        cJSON_AddNumberToObject(item, "minutes", one.minutes);
        cJSON_AddNumberToObject(item, "bytes", one.bytes);
        cJSON_AddItemToArray(list, item);
    }
    cJSON_AddItemToObject(root.get(), "gaps", cJSON_Duplicate(cJSON_GetObjectItem(view.report, "gaps"), true));
    print_json(root.get());
}

std::string whole(double number)
{
    return std::to_string(static_cast<long long>(number));
}

text_table table_of(const household &known, const history_view &view)
{
    text_table table = {{{view.form == by_session ? "FROM" : "DAY"}}, {}};
    time_t day = view.week ? 0 : view.rows.back().start; // its date is left out
    if (view.form == by_session)
        table.columns.push_back({"TO"});
    table.columns.push_back({"MINUTES", true});
    if (view.form != by_class)
        table.columns.push_back({"APP", false, true});
    table.columns.push_back({"CLASS", false, true});
    for (const used &one : view.rows) {
        std::vector<std::string> row = {view.form == by_session ? clock_text(one.start, day) : one.day};
        if (view.form == by_session)
            row.push_back(clock_text(one.end, day));
        row.push_back(whole(one.minutes));
        if (view.form != by_class)
            row.push_back(app_label(known, one.app_id));
        row.push_back(class_name(one.class_type));
        table.rows.push_back(row);
    }
    return table;
}

void print_as_table(const household &known, const history_view &view)
{
    std::string days = view.from == view.until ? view.from : view.from + " to " + view.until;
    double minutes = 0;
    for (const used &one : view.rows)
        minutes += one.minutes;
    if (view.rows.empty())
        printf("%s: nothing is known of %s.\n", printable(view.device).c_str(), days.c_str());
    else
        printf("%s, %s: %s min\n", printable(view.device).c_str(), days.c_str(), whole(minutes).c_str());
    if (!view.rows.empty())
        print_table(table_of(known, view));
    const cJSON *gap = nullptr;
    cJSON_ArrayForEach(gap, cJSON_GetObjectItem(view.report, "gaps")) {
        double lost = json_number(gap, "lost", 0);
        printf("Not all is known of %s to %s: %s.\n", time_text(static_cast<time_t>(json_number(gap, "start", 0))).c_str(),
               time_text(static_cast<time_t>(json_number(gap, "end", 0))).c_str(),
               json_text(gap, "why") == "restart" ? "the daemon was started"
               : json_text(gap, "why") == "clock" ? "the clock was set"
               : lost < 0                         ? "pushes were lost"
               : lost == 1                        ? "a push was lost"
                                                  : (whole(lost) + " pushes were lost").c_str());
    }
    time_t since = static_cast<time_t>(json_number(view.report, "kept_since", 0)),
           up_to = static_cast<time_t>(json_number(view.report, "kept_up_to", 0));
    if (since)
        printf("Kept from %s%s.\n", time_text(since).c_str(), up_to ? (" to " + time_text(up_to)).c_str() : "");
}

// As spreadsheets take it. What they would run as a formula is made a text.
std::string csv_field(const std::string &text)
{
    std::string field = !text.empty() && strchr("=+-@\t\r", text[0]) ? "'" : "";
    field += text;
    if (field.find_first_of(",\"\r\n") == std::string::npos)
        return field;
    std::string quoted = "\"";
    for (char one : field)
        quoted += one == '"' ? "\"\"" : std::string(1, one);
    return quoted + "\"";
}

void print_as_csv(const household &known, const history_view &view)
{
    constexpr const char *headings[] = {"start,end,app_id,app,class,minutes,bytes,state", "day,app_id,app,class,minutes,bytes",
                                        "day,class,minutes,bytes"};
    printf("mac,device,%s\n", headings[view.form]);
    for (const used &one : view.rows) {
        std::string line = view.mac + "," + csv_field(view.device) + ",";
        line += view.form == by_session ? time_text(one.start) + "," + time_text(one.end) : one.day;
        if (view.form != by_class)
            line += "," + std::to_string(one.app_id) + "," + csv_field(app_name(known, one.app_id));
        line += std::string(",") + (one.class_type ? class_name(one.class_type) : "");
        line += "," + whole(one.minutes) + "," + whole(one.bytes) + (view.form == by_session ? "," + one.state : "");
        puts(line.c_str());
    }
}

} // namespace

int run_history(const call &what)
{
    history_view view = {};
    if (!read_form(what.line, &view))
        return exit_usage;
    time_t now = time(nullptr);
    view.until = given(what.line, option_day) ? what.line.value[option_day] : date_text(now, 0);
    view.from = view.week ? date_text(now, 1 - days_of_a_week) : view.until;
    json_tree report;
    history_outcome outcome = read_history(what.line, {view.from, view.until}, true, &report);
    if (outcome == history_not_installed)
        fputs("appidentctl: no history is kept: appident-home is not installed.\n"
              "Install the package appident-home; it keeps the history from then on.\n"
              "'appidentctl today' tells what the daemon's own pushes still hold.\n",
              stderr);
    else if (outcome == history_unreadable)
        fputs("appidentctl: the history cannot be read. It is for root and the group\n"
              "appident-home, and begins when appident-home has been started.\n",
              stderr);
    if (outcome != history_read)
        return exit_unreachable;
    household known = read_household(what.where);
    add_kept_devices(report.get(), &known);
    view.mac = operand_device(what, known);
    if (view.mac.empty())
        return exit_usage;
    view.device = device_name(known, view.mac);
    view.report = report.get();
    view.rows = read_rows(known, report.get(), view);
    (given(what.line, option_json) ? print_as_json : given(what.line, option_csv) ? print_as_csv : print_as_table)(known, view);
    return exit_done;
}
