// apps: what devices use right now.
#include "tools/appidentctl/commands.h"
#include "tools/appidentctl/daemon_call.h"
#include "tools/appidentctl/device_text.h"
#include "tools/appidentctl/exit_codes.h"
#include "tools/appidentctl/names.h"
#include "tools/appidentctl/table.h"
#include "tools/appidentctl/time_text.h"

#include "common/sec_plg_common.h"

#include <stdio.h>

namespace {

void add_apps(text_table *table, const names &known, const std::string &device, const cJSON *apps)
{
    const cJSON *app = nullptr;
    cJSON_ArrayForEach(app, apps) {
        table->rows.push_back({device_label(known, device), app_label(known, static_cast<u32>(json_number(app, "appid", 0))),
                               time_text(static_cast<time_t>(json_number(app, "starttime", 0))),
                               std::to_string(static_cast<u32>(json_number(app, "sumtime", 0)))});
    }
}

void print_apps(const call &what, const cJSON *answer)
{
    names known = read_names(what.where);
    text_table table = {"lllr", {{"DEVICE", "APP", "SINCE", "MINUTES"}}};
    add_apps(&table, known, what.device, cJSON_GetObjectItem(answer, "data"));
    const cJSON *result = nullptr;
    cJSON_ArrayForEach(result, cJSON_GetObjectItem(answer, "results")) {
        add_apps(&table, known, json_text(result, "device"), cJSON_GetObjectItem(result, "data"));
    }
    if (table.rows.size() > 1)
        print_table(table);
    else
        puts("No app is in use.");
}

int ask_and_print(const call &what, unsigned int id, const std::string &device)
{
    json_answer answer;
    int code = ask_for_json(what.where, id, device, &answer);
    if (code == exit_refused)
        fputs("appidentctl: the daemon refused\n", stderr);
    if (code != exit_done)
        return code;
    if (given(what.line, option_json))
        puts(answer.text ? answer.text.get() : "{\"err_no\":\"0\",\"err_msg\":\"success\",\"data\":null}");
    else if (!answer.text)
        printf("%s is not on line, or has used nothing since it came.\n", what.device.c_str());
    else
        print_apps(what, answer.tree.get());
    return exit_done;
}

// The devices named by --devices, else those that the roster says are on line.
int list_devices(const call &what, std::vector<std::string> *devices)
{
    if (const char *text = what.line.value[option_devices]) {
        for (const std::string &one : split(text, ',')) {
            devices->push_back(device_text(one));
            if (devices->back().empty())
                return usage_error(what.line, "--devices: '%s' is no MAC", one.c_str());
        }
        return exit_done;
    }
    names known = read_names(what.where);
    for (const known_device &one : known.devices)
        if (one.online)
            devices->push_back(one.device);
    if (!known.roster_found)
        return usage_error(what.line, "no roster at %s; name the devices with --devices", what.where.roster.c_str());
    return exit_done;
}

} // namespace

int run_apps(const call &what)
{
    bool rom = given(what.line, option_rom);
    bool many = given(what.line, option_all) || given(what.line, option_devices);
    if (many == !what.device.empty())
        return usage_error(what.line, "name one device, or --all, or --devices");
    if (!many)
        return ask_and_print(what, rom ? APPIDENT_GET_CUR_DEVICE_APP_FOR_ROM : APPIDENT_GET_CUR_DEVICE_APP, what.device);

    std::vector<std::string> devices;
    int code = list_devices(what, &devices);
    if (code != exit_done)
        return code;
    // The daemon refuses an empty list.
    if (devices.empty()) {
        puts(given(what.line, option_json) ? "{\"err_no\":\"0\",\"err_msg\":\"success\",\"results\":[]}"
                                           : "No device is on line.");
        return exit_done;
    }
    json_tree list(cJSON_CreateObject());
    cJSON *array = cJSON_AddArrayToObject(list.get(), "device");
    for (const std::string &one : devices)
        cJSON_AddItemToArray(array, cJSON_CreateString(one.c_str()));
    heap_text text(cJSON_PrintUnformatted(list.get()));
    return ask_and_print(what, rom ? APPIDENT_GET_CUR_DEVICES_APP_FOR_ROM : APPIDENT_GET_CUR_DEVICES_APP, text.get());
}
