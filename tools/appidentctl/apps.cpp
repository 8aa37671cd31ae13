// apps: what devices use right now.
#include "tools/appidentctl/commands.h"
#include "tools/appidentctl/current_apps.h"
#include "tools/appidentctl/exit_codes.h"
#include "tools/appidentctl/json_file.h"
#include "tools/appidentctl/operand.h"
#include "tools/appidentctl/table.h"
#include "tools/appidentctl/time_text.h"

#include <stdio.h>

namespace {

// The devices that the command line names, else all that are on line; false after saying what is wrong.
bool find_devices(const call &what, const household &known, std::vector<std::string> *macs)
{
    std::vector<std::string> words = what.line.operands;
    if (const char *list = what.line.value[option_devices])
        words = split(list, ',');
    for (const std::string &one : words) {
        macs->push_back(device_from_words(what.line, known, one));
        if (macs->back().empty())
            return false;
    }
    if (!words.empty())
        return true;
    for (const known_device &one : known.devices)
        if (one.on_line)
            macs->push_back(one.mac);
    if (!known.devices_known)
        usage_error(what.line, "no roster at %s; name the devices with --devices", what.where.roster.c_str());
    return known.devices_known;
}

void print_as_json(const household &known, const std::vector<current_app> &apps)
{
    json_tree root(cJSON_CreateObject());
    cJSON *list = cJSON_AddArrayToObject(root.get(), "apps");
    for (const current_app &one : apps) {
        cJSON *entry = cJSON_CreateObject();
        cJSON_AddStringToObject(entry, "mac", one.mac.c_str());
        cJSON_AddStringToObject(entry, "device", device_name(known, one.mac).c_str());
        cJSON_AddNumberToObject(entry, "app_id", one.app_id);
        cJSON_AddStringToObject(entry, "app", app_name(known, one.app_id).c_str());
        cJSON_AddNumberToObject(entry, "since", static_cast<double>(one.since));
        cJSON_AddNumberToObject(entry, "minutes", one.minutes);
        cJSON_AddItemToArray(list, entry);
    }
    print_json(root.get());
}

} // namespace

int run_apps(const call &what)
{
    int named = given(what.line, option_all) + given(what.line, option_devices) + !what.line.operands.empty();
    if (named > 1)
        return usage_error(what.line, "name one device, or --all, or --devices");
    household known = read_household(what.where);
    std::vector<std::string> macs;
    std::vector<current_app> apps;
    if (!find_devices(what, known, &macs))
        return exit_usage;
    int code = ask_current_apps(what.where, macs, given(what.line, option_rom), &apps);
    if (code != exit_done)
        return code;
    if (given(what.line, option_json)) {
        print_as_json(known, apps);
        return exit_done;
    }
    text_table table = {{{"DEVICE", false, true}, {"APP", false, true}, {"SINCE"}, {"MINUTES", true}}, {}};
    for (const current_app &one : apps)
        table.rows.push_back(
            {device_name(known, one.mac), app_label(known, one.app_id), clock_text(one.since), std::to_string(one.minutes)});
    if (table.rows.empty())
        puts(macs.empty() ? "No device is on line." : "No app is in use.");
    else
        print_table(table);
    return exit_done;
}
