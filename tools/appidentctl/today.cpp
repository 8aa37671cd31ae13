// today: minutes of today for each app and class of a device, or of all; from the history where appident-home keeps one, else
// from the spool of pushes, which holds the latest only.
#include "tools/appidentctl/commands.h"
#include "tools/appidentctl/day_sums.h"
#include "tools/appidentctl/exit_codes.h"
#include "tools/appidentctl/json_file.h"
#include "tools/appidentctl/kept_history.h"
#include "tools/appidentctl/operand.h"
#include "tools/appidentctl/table.h"
#include "tools/appidentctl/time_text.h"

#include <stdio.h>

namespace {

std::map<u32, u32> sums_by_class(const household &known, const std::map<u32, u32> &apps)
{
    std::map<u32, u32> classes;
    for (const auto &[app_id, minutes] : apps)
        classes[class_of_app(known, app_id)] += minutes;
    return classes;
}

void print_as_json(const household &known, const day_sums &sums)
{
    json_tree root(cJSON_CreateObject());
    cJSON_AddNumberToObject(root.get(), "day_began", static_cast<double>(sums.begin));
    cJSON_AddNumberToObject(root.get(), "complete_since", static_cast<double>(sums.complete));
    cJSON *list = cJSON_AddArrayToObject(root.get(), "devices");
    for (const auto &[mac, apps] : sums.minutes) {
        cJSON *device = cJSON_CreateObject();
        cJSON_AddStringToObject(device, "mac", mac.c_str());
        cJSON_AddStringToObject(device, "device", device_name(known, mac).c_str());
        cJSON_AddNumberToObject(device, "minutes", minutes_of(sums, mac));
        cJSON *app_list = cJSON_AddArrayToObject(device, "apps");
        for (const auto &[app_id, minutes] : apps) {
            cJSON *app = cJSON_CreateObject();
            cJSON_AddNumberToObject(app, "app_id", app_id);
            cJSON_AddStringToObject(app, "app", app_name(known, app_id).c_str());
            cJSON_AddNumberToObject(app, "minutes", minutes);
            cJSON_AddItemToArray(app_list, app);
        }
        cJSON *class_list = cJSON_AddArrayToObject(device, "classes");
        for (const auto &[class_type, minutes] : sums_by_class(known, apps)) {
            cJSON *one = cJSON_CreateObject();
            cJSON_AddNumberToObject(one, "class_type", class_type);
            cJSON_AddStringToObject(one, "class", class_name(class_type));
            cJSON_AddNumberToObject(one, "minutes", minutes);
            cJSON_AddItemToArray(class_list, one);
        }
        cJSON_AddItemToArray(list, device);
    }
    print_json(root.get());
}

void print_as_table(const household &known, const day_sums &sums)
{
    text_table table = {{{"DEVICE", false, true}, {"APP", false, true}, {"CLASS"}, {"MINUTES", true}}, {}};
    for (const auto &[mac, apps] : sums.minutes) {
        std::string name = device_name(known, mac);
        for (const auto &[app_id, minutes] : apps)
            table.rows.push_back(
                {name, app_label(known, app_id), class_name(class_of_app(known, app_id)), std::to_string(minutes)});
        for (const auto &[class_type, minutes] : sums_by_class(known, apps))
            table.rows.push_back({name, std::string("all of ") + (class_type ? class_name(class_type) : "no class"), "",
                                  std::to_string(minutes)});
    }
    if (table.rows.empty())
        puts("Nothing was used today, as far as is known.");
    else
        print_table(table);
}

// Whether the sums were taken from the history. One that lags behind the pushes, as its program does not run, would lack more
// than the spool.
bool take_from_history(const call &what, time_t now, household *known, day_sums *sums)
{
    constexpr time_t most_lag = 60;
    json_tree report;
    std::string day = date_text(now, 0);
    // A history that was asked for by name is wanted; otherwise it may well be missing.
    if (read_history(what.line, {day, day}, given(what.line, option_database), &report) != history_read)
        return false;
    time_t up_to = static_cast<time_t>(json_number(report.get(), "kept_up_to", 0));
    if (up_to + most_lag < sums->last_push) {
        fprintf(stderr,
                "appidentctl: the history ends at %s: does appident-home run? The daemon's pushes are counted instead.\n",
                time_text(up_to).c_str());
        return false;
    }
    take_kept_minutes(report.get(), sums);
    add_kept_devices(report.get(), known);
    return true;
}

int add_current_apps(const call &what, const household &known, time_t now, day_sums *sums)
{
    std::vector<std::string> macs;
    for (const known_device &one : known.devices)
        macs.push_back(one.mac);
    std::vector<current_app> apps;
    int code = ask_current_apps(what.where, macs, false, &apps);
    add_minutes_in_use(apps, now, sums);
    return code;
}

} // namespace

int run_today(const call &what)
{
    household known = read_household(what.where);
    time_t now = time(nullptr);
    day_sums sums = sum_pushes_today(what.where, now);
    bool kept = take_from_history(what, now, &known, &sums);
    if (!kept && given(what.line, option_database))
        return exit_unreachable;
    std::string wanted = operand_device(what, known);
    if (wanted.empty() && !what.line.operands.empty())
        return exit_usage;
    int code = kept ? exit_done : add_current_apps(what, known, now, &sums);
    if (!wanted.empty()) {
        std::map<u32, u32> of_device = sums.minutes[wanted];
        sums.minutes.clear();
        if (!of_device.empty())
            sums.minutes[wanted] = of_device;
    }
    if (given(what.line, option_json)) {
        print_as_json(known, sums);
        return code;
    }
    print_as_table(known, sums);
    if (sums.complete > sums.begin)
        printf("Counted from the %s since %s; what was before is not kept.\n", kept ? "history" : "pushes",
               time_text(sums.complete).c_str());
    puts("The daemon's own count, which limits go by, begins anew at 23:00 and at\n"
         "midnight, when it starts, and when a device has left.");
    return code;
}
