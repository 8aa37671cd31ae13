#include "tools/appidentctl/household.h"

#include "platform/linux/client/request_client.h"
#include "platform/linux/client/request_protocol.h"
#include "tools/appidentctl/device_text.h"
#include "tools/appidentctl/json_file.h"

#include <stdio.h>
#include <stdlib.h>

namespace {

void read_catalogue(const std::string &path, household *known)
{
    json_tree root = read_json(path);
    const cJSON *app = nullptr;
    cJSON_ArrayForEach(app, cJSON_GetObjectItem(root.get(), "names")) {
        if (app->string && cJSON_IsString(app))
            known->apps[static_cast<u32>(strtoul(app->string, nullptr, 10))].name = app->valuestring;
    }
    const cJSON *entry = nullptr;
    cJSON_ArrayForEach(entry, cJSON_GetObjectItem(root.get(), "data")) {
        u32 small_class = static_cast<u32>(json_number(entry, "class_type", 0));
        cJSON_ArrayForEach(app, cJSON_GetObjectItem(entry, "appid")) {
            if (cJSON_IsNumber(app) && app->valuedouble >= 1 && app->valuedouble <= 0xffff)
                known->apps[static_cast<u32>(app->valuedouble)].small_class = small_class;
        }
    }
}

void take_devices(const cJSON *entries, bool observed, household *known)
{
    known->devices_known = cJSON_IsArray(entries);
    const cJSON *entry = nullptr;
    cJSON_ArrayForEach(entry, entries) {
        known_device one;
        one.mac = device_text(json_text(entry, "mac"));
        one.name = json_text(entry, "name");
        one.address = json_text(entry, "address");
        one.role = static_cast<int>(json_number(entry, "role", 0));
        one.on_line = observed ? cJSON_IsTrue(cJSON_GetObjectItem(entry, "on_line"))
                               : !cJSON_IsFalse(cJSON_GetObjectItem(entry, "online"));
        one.on_line_since = static_cast<time_t>(json_number(entry, "on_line_since", 0));
        one.away = cJSON_IsTrue(cJSON_GetObjectItem(entry, "away"));
        one.private_mac = cJSON_IsTrue(cJSON_GetObjectItem(entry, "private_mac"));
        if (!one.mac.empty())
            known->devices.push_back(one);
    }
}

// What the library tells, as many devices a time as fit an answer; false when nobody answers or an older library does not know
// the question.
bool ask_for_devices(const places &where, household *known)
{
    std::string input;
    for (bool more = true; more;) {
        client_request request = {};
        request.id = request_list_devices;
        request.text = input.c_str();
        client_answer answer = {};
        if (call_daemon(where.socket.c_str(), where.timeout_ms, request, &answer) != request_done || !answer.text)
            return false;
        json_tree root(cJSON_Parse(answer.text.get()));
        const cJSON *entries = cJSON_GetObjectItem(root.get(), "devices");
        if (!cJSON_IsArray(entries))
            return false;
        const cJSON *lan = cJSON_GetObjectItem(root.get(), "lan");
        known->lan_interface = json_text(lan, "interface");
        known->lan_reason = json_text(lan, "why");
        size_t before = known->devices.size();
        take_devices(entries, true, known);
        more = cJSON_IsTrue(cJSON_GetObjectItem(root.get(), "more")) && known->devices.size() > before;
        if (more)
            input = "{\"after\":\"" + known->devices.back().mac + "\"}";
    }
    return true;
}

} // namespace

household read_household(const places &where)
{
    household known;
    read_catalogue(where.installed_catalogue, &known);
    read_catalogue(where.catalogue, &known);
    if (!ask_for_devices(where, &known)) {
        json_tree root = read_json(where.roster);
        take_devices(cJSON_GetObjectItem(root.get(), "devices"), false, &known);
    }
    return known;
}

u32 class_of_app(const household &known, u32 app_id)
{
    auto entry = known.apps.find(app_id);
    return entry == known.apps.end() ? 0 : limit_class_of(entry->second.small_class);
}

std::string app_name(const household &known, u32 app_id)
{
    auto entry = known.apps.find(app_id);
    return entry == known.apps.end() ? "" : entry->second.name;
}

std::string app_label(const household &known, u32 app_id)
{
    std::string name = app_name(known, app_id);
    return std::to_string(app_id) + (name.empty() ? "" : " " + name);
}

const known_device *find_device(const household &known, const std::string &mac)
{
    for (const known_device &one : known.devices)
        if (one.mac == mac)
            return &one;
    return nullptr;
}

std::string device_name(const household &known, const std::string &mac)
{
    const known_device *entry = find_device(known, mac);
    if (entry && !entry->name.empty())
        return entry->name;
    return "device " + (mac.size() > 5 ? mac.substr(mac.size() - 5) : mac);
}

const char *role_name(int role)
{
    return role <= 0 ? "not watched" : role == 1 ? "watched with limits" : "watched";
}
