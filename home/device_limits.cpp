#include "home/device_limits.h"

#include "home/daemon_settings.h"
#include "platform/linux/client/limit_classes.h"
#include "platform/linux/client/limits_text.h"

#include <time.h>

namespace {

constexpr size_t devices_most = 200;

known_limits limits_in(const cJSON *list)
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

// Changes the one within all five.
void put_change(const household &home, const limit_change &wanted, cJSON *list)
{
    cJSON *limit = find_limit(list, wanted.class_type);
    put_member(limit, "onoff", cJSON_CreateNumber(wanted.to.on ? 1 : 0));
    put_member(limit, "use_time", cJSON_CreateNumber(static_cast<double>(wanted.to.minutes)));
    if (wanted.to.on && cJSON_GetArraySize(cJSON_GetObjectItem(limit, "appid")) == 0)
        put_member(limit, "appid", apps_of_class(home.apps, wanted.class_type));
}

std::string words_of(const known_limits &limits, u32 class_type)
{
    auto one = limits.find(class_type);
    if (one == limits.end() || !one->second.on)
        return "off";
    return std::to_string(one->second.minutes) + " minutes";
}

} // namespace

void put_member(cJSON *object, const char *key, cJSON *value)
{
    cJSON_DeleteItemFromObjectCaseSensitive(object, key);
    cJSON_AddItemToObject(object, key, value);
}

cJSON *apps_of_class(const app_names &apps, u32 class_type)
{
    cJSON *list = cJSON_CreateArray();
    for (const auto &one : apps.classes)
        if (limit_class_of(static_cast<u32>(one.second)) == class_type &&
            cJSON_GetArraySize(list) < static_cast<int>(most_apps_of_a_class))
            cJSON_AddItemToArray(list, cJSON_CreateNumber(one.first));
    return list;
}

void refresh_limits(household *home)
{
    std::map<std::string, known_limits> all;
    for (const known_device &one : list_devices(&home->all.db)) {
        if (one.role != 1 || all.size() >= devices_most)
            continue;
        json_tree tree;
        const cJSON *stored = nullptr;
        if (!read_limits(*home, one.mac, &tree, &stored))
            return; // nobody answers: what was known stays
        all[one.mac] = limits_in(stored);
    }
    home->limits.swap(all);
}

bool change_limit(household *home, const limit_change &wanted)
{
    json_tree before, after;
    const cJSON *stored = nullptr;
    if (!read_limits(*home, wanted.mac, &before, &stored))
        return false;
    known_limits was = limits_in(stored);
    json_tree whole = compose_limits(wanted.mac, stored);
    cJSON *list = cJSON_GetObjectItem(whole.get(), "data");
    put_change(*home, wanted, list);
    bool done = write_limits(*home, wanted.mac, list);
    if (!read_limits(*home, wanted.mac, &after, &stored))
        return false;
    known_limits now = limits_in(stored);
    home->limits[wanted.mac] = now;
    add_change(&home->all,
               {time(nullptr), wanted.who, wanted.from, wanted.mac, std::string("limit of ") + class_name(wanted.class_type),
                words_of(was, wanted.class_type), words_of(now, wanted.class_type)});
    return done;
}
