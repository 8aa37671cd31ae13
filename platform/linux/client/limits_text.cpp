#include "platform/linux/client/limits_text.h"

#include "platform/linux/client/limit_classes.h"

#include <iterator>
#include <math.h>

namespace {

bool whole_number(const cJSON *item, double least, double most)
{
    return cJSON_IsNumber(item) && item->valuedouble >= least && item->valuedouble <= most &&
           floor(item->valuedouble) == item->valuedouble;
}

const char *limit_fault(const cJSON *limit)
{
    constexpr double most_u32 = 0xffffffff;
    const cJSON *onoff = cJSON_GetObjectItem(limit, "onoff");
    const cJSON *minutes = cJSON_GetObjectItem(limit, "use_time");
    const cJSON *apps = cJSON_GetObjectItem(limit, "appid");
    if (!whole_number(cJSON_GetObjectItem(limit, "class_type"), 1, std::size(limit_classes)))
        return "a limit without a \"class_type\" from 1 to 5";
    if (onoff && !whole_number(onoff, 0, 1))
        return "\"onoff\" is neither 0 nor 1";
    if (minutes && !whole_number(minutes, 0, most_u32))
        return "\"use_time\" is no number of minutes";
    if (apps && !cJSON_IsArray(apps))
        return "\"appid\" is no array";
    if (cJSON_GetArraySize(apps) > static_cast<int>(most_apps_of_a_class))
        return "more than 256 apps in a class";
    const cJSON *app = nullptr;
    cJSON_ArrayForEach(app, apps) {
        if (!whole_number(app, 1, 0xffff))
            return "an app id that is no number from 1 to 65535";
    }
    return nullptr;
}

cJSON *limit_off(u32 class_type)
{
    cJSON *limit = cJSON_CreateObject();
    cJSON_AddNumberToObject(limit, "class_type", class_type);
    cJSON_AddNumberToObject(limit, "onoff", 0);
    cJSON_AddNumberToObject(limit, "use_time", 0);
    cJSON_AddArrayToObject(limit, "appid");
    return limit;
}

} // namespace

cJSON *find_limit(const cJSON *limits, u32 class_type)
{
    cJSON *limit = nullptr;
    cJSON_ArrayForEach(limit, limits) {
        if (cJSON_GetNumberValue(cJSON_GetObjectItem(limit, "class_type")) == class_type)
            return limit;
    }
    return nullptr;
}

std::string limits_fault(const cJSON *limits)
{
    if (!cJSON_IsArray(limits) || cJSON_GetArraySize(limits) == 0)
        return "no array of limits, neither alone nor as \"data\"";
    const cJSON *limit = nullptr;
    cJSON_ArrayForEach(limit, limits) {
        if (const char *fault = limit_fault(limit))
            return fault;
        if (find_limit(limits, static_cast<u32>(cJSON_GetObjectItem(limit, "class_type")->valuedouble)) != limit)
            return "a class given twice";
    }
    return "";
}

json_tree compose_limits(const std::string &device, const cJSON *wanted)
{
    json_tree whole(cJSON_CreateObject());
    cJSON_AddStringToObject(whole.get(), "device", device.c_str());
    cJSON *data = cJSON_AddArrayToObject(whole.get(), "data");
    for (const limit_class &one : limit_classes) {
        const cJSON *limit = find_limit(wanted, one.class_type);
        cJSON_AddItemToArray(data, limit ? cJSON_Duplicate(limit, true) : limit_off(one.class_type));
    }
    return whole;
}

bool limits_equal(const cJSON *sent, const cJSON *stored)
{
    if (cJSON_GetArraySize(sent) != cJSON_GetArraySize(stored))
        return false;
    for (const limit_class &one : limit_classes)
        if (!cJSON_Compare(find_limit(sent, one.class_type), find_limit(stored, one.class_type), true))
            return false;
    return true;
}
