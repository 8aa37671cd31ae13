#include "home/device_limits.h"

#include "common/sec_plg_common.h"
#include "home/serve.h"
#include "platform/linux/client/json_text.h"
#include "platform/linux/client/limit_classes.h"
#include "platform/linux/client/limits_text.h"
#include "platform/linux/client/request_client.h"

#include <time.h>

namespace {

constexpr int timeout_ms = 300;
constexpr size_t devices_most = 200;

json_tree ask_for_limits(const household &home, const std::string &mac, request_outcome *outcome)
{
    client_request request = {};
    request.id = APPIDENT_GET_DEVICE_APP_LIST_USE_TIME;
    request.device = mac.c_str();
    client_answer answer = {};
    *outcome = call_daemon(home.truth.socket.c_str(), timeout_ms, request, &answer);
    return json_tree(*outcome == request_done && answer.text ? parse_json_text(answer.text.get()) : nullptr);
}

const cJSON *list_in(const json_tree &answer)
{
    return cJSON_GetObjectItem(answer.get(), "data");
}

known_limits read_limits(const cJSON *list)
{
    known_limits limits;
    for (const limit_class &one : limit_classes) {
        const cJSON *limit = find_limit(list, one.class_type);
        int64_t on = 0, minutes = 0;
        if (read_count(limit, "onoff", 1, &on) && read_count(limit, "use_time", 4294967295.0, &minutes))
            limits[one.class_type] = {on == 1, minutes};
    }
    return limits;
}

void put(cJSON *object, const char *key, cJSON *value)
{
    cJSON_DeleteItemFromObject(object, key);
    cJSON_AddItemToObject(object, key, value);
}

cJSON *apps_of(const app_names &apps, u32 class_type)
{
    cJSON *list = cJSON_CreateArray();
    for (const auto &one : apps.classes)
        if (limit_class_of(static_cast<u32>(one.second)) == class_type &&
            cJSON_GetArraySize(list) < static_cast<int>(most_apps_of_a_class))
            cJSON_AddItemToArray(list, cJSON_CreateNumber(one.first));
    return list;
}

// The stored limits with the one changed.
json_tree with_change(const household &home, const limit_change &wanted, const cJSON *stored)
{
    json_tree whole = compose_limits(wanted.mac, stored);
    cJSON *limit = find_limit(list_in(whole), wanted.class_type);
    put(limit, "onoff", cJSON_CreateNumber(wanted.to.on ? 1 : 0));
    put(limit, "use_time", cJSON_CreateNumber(static_cast<double>(wanted.to.minutes)));
    if (wanted.to.on && cJSON_GetArraySize(cJSON_GetObjectItem(limit, "appid")) == 0)
        put(limit, "appid", apps_of(home.apps, wanted.class_type));
    return whole;
}

std::string words_of(const known_limits &limits, u32 class_type)
{
    auto one = limits.find(class_type);
    if (one == limits.end() || !one->second.on)
        return "off";
    return std::to_string(one->second.minutes) + " minutes";
}

} // namespace

void refresh_limits(household *home)
{
    std::map<std::string, known_limits> all;
    request_outcome outcome = request_done;
    for (const known_device &one : list_devices(&home->all.db)) {
        if (one.role != 1 || all.size() >= devices_most)
            continue;
        json_tree answer = ask_for_limits(*home, one.mac, &outcome);
        if (outcome != request_done && outcome != request_refused)
            return; // nobody answers: what was known stays
        all[one.mac] = read_limits(list_in(answer));
    }
    home->limits.swap(all);
}

bool change_limit(household *home, const limit_change &wanted)
{
    request_outcome outcome = request_done;
    json_tree before = ask_for_limits(*home, wanted.mac, &outcome);
    if (outcome != request_done && outcome != request_refused)
        return false;
    json_tree whole = with_change(*home, wanted, list_in(before));
    heap_text text(cJSON_PrintUnformatted(whole.get()));
    client_request request = {};
    request.id = APPIDENT_SET_DEVICE_APP_LIST_USE_TIME;
    request.device = wanted.mac.c_str();
    request.text = text.get();
    client_answer answer = {};
    if (call_daemon(home->truth.socket.c_str(), timeout_ms, request, &answer) != request_done)
        return false;
    json_tree after = ask_for_limits(*home, wanted.mac, &outcome);
    known_limits was = read_limits(list_in(before)), now = read_limits(list_in(after));
    home->limits[wanted.mac] = now;
    add_change(&home->all,
               {time(nullptr), wanted.who, wanted.from, wanted.mac, std::string("limit of ") + class_name(wanted.class_type),
                words_of(was, wanted.class_type), words_of(now, wanted.class_type)});
    return limits_equal(list_in(whole), list_in(after));
}
