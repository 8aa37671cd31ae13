// devices: who is on the LAN, and what each uses.
#include "tools/appidentctl/commands.h"
#include "tools/appidentctl/day_sums.h"
#include "tools/appidentctl/exit_codes.h"
#include "tools/appidentctl/household.h"
#include "tools/appidentctl/json_file.h"
#include "tools/appidentctl/table.h"
#include "tools/appidentctl/time_text.h"

#include <algorithm>
#include <stdio.h>

namespace {

constexpr size_t longest_ipv4 = 15;

const current_app *app_of(const std::vector<current_app> &apps, const std::string &mac)
{
    auto found = std::find_if(apps.begin(), apps.end(), [&](const current_app &one) { return one.mac == mac; });
    return found == apps.end() ? nullptr : &*found;
}

std::string presence_text(const known_device &device)
{
    if (!device.on_line)
        return "off line";
    if (device.away)
        return "away";
    return device.on_line_since ? "since " + clock_text(device.on_line_since) : "on line";
}

void print_as_json(const household &known, const std::vector<current_app> &apps, const day_sums &sums)
{
    json_tree root(cJSON_CreateObject());
    cJSON *list = cJSON_AddArrayToObject(root.get(), "devices");
    for (const known_device &one : known.devices) {
        const current_app *app = app_of(apps, one.mac);
        cJSON *entry = cJSON_CreateObject();
        cJSON_AddStringToObject(entry, "mac", one.mac.c_str());
        cJSON_AddStringToObject(entry, "device", device_name(known, one.mac).c_str());
        cJSON_AddStringToObject(entry, "address", one.address.c_str());
        cJSON_AddNumberToObject(entry, "role", one.role);
        cJSON_AddStringToObject(entry, "role_name", role_name(one.role));
        cJSON_AddBoolToObject(entry, "on_line", one.on_line);
        cJSON_AddNumberToObject(entry, "on_line_since", static_cast<double>(one.on_line_since));
        cJSON_AddBoolToObject(entry, "away", one.away);
        cJSON_AddBoolToObject(entry, "private_mac", one.private_mac);
        cJSON_AddNumberToObject(entry, "app_id", app ? app->app_id : 0);
        cJSON_AddStringToObject(entry, "app", app ? app_name(known, app->app_id).c_str() : "");
        cJSON_AddNumberToObject(entry, "minutes_today", minutes_of(sums, one.mac));
        cJSON_AddItemToArray(list, entry);
    }
    cJSON *lan = cJSON_AddObjectToObject(root.get(), "lan");
    cJSON_AddStringToObject(lan, "interface", known.lan_interface.c_str());
    cJSON_AddStringToObject(lan, "why", known.lan_reason.c_str());
    print_json(root.get());
}

} // namespace

int run_devices(const call &what)
{
    household known = read_household(what.where);
    if (!known.devices_known) {
        fprintf(stderr, "appidentctl: no devices: nobody answers at %s, and there is no roster at %s\n",
                what.where.socket.c_str(), what.where.roster.c_str());
        return exit_unreachable;
    }
    std::vector<std::string> watched;
    for (const known_device &one : known.devices)
        if (one.role > 0)
            watched.push_back(one.mac);
    std::vector<current_app> apps;
    int code = ask_current_apps(what.where, watched, true, &apps);
    time_t now = time(nullptr);
    day_sums sums = sum_pushes_today(what.where, now);
    add_minutes_in_use(apps, now, &sums);
    if (given(what.line, option_json)) {
        print_as_json(known, apps, sums);
        return code;
    }
    text_table table = {{{"DEVICE", false, true},
                         {"ADDRESS", false, true, longest_ipv4, true},
                         {"ROLE", false, true, 8, true},
                         {"ON LINE"},
                         {"APP NOW", false, true},
                         {"TODAY", true}},
                        {}};
    bool any_private = false;
    for (const known_device &one : known.devices) {
        const current_app *app = app_of(apps, one.mac);
        any_private = any_private || one.private_mac;
        table.rows.push_back({device_name(known, one.mac) + (one.private_mac ? "*" : ""),
                              one.address.empty() ? "-" : one.address, role_name(one.role), presence_text(one),
                              app ? app_label(known, app->app_id) : "-",
                              one.role > 0 ? std::to_string(minutes_of(sums, one.mac)) + " min" : "-"});
    }
    if (table.rows.empty())
        puts("No device has been seen yet.");
    else
        print_table(table);
    if (any_private)
        puts(
            "* private address: the device may come back as a stranger; switch it off for this network in its Wi-Fi settings.");
    return code;
}
