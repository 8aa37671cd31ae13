#include "simulator/push_watch.h"

#include "simulator/world/household_files.h"

#include "common/guards.h"

#include <cjson/cJSON.h>
#include <stdlib.h>
#include <string.h>

namespace {

// Numbers of pushes are strings, numbers of answers are numbers.
u32 value_of(const cJSON *object, const char *key)
{
    const cJSON *item = cJSON_GetObjectItem(object, key);
    if (cJSON_IsString(item))
        return static_cast<u32>(strtoul(item->valuestring, nullptr, 10));
    return cJSON_IsNumber(item) ? static_cast<u32>(item->valuedouble) : 0;
}

std::string text_of(const cJSON *object, const char *key)
{
    const char *text = cJSON_GetStringValue(cJSON_GetObjectItem(object, key));
    return text ? text : "";
}

outcome_kind presence_kind(const std::string &status)
{
    return status == "online" ? outcome_online : status == "offline" ? outcome_offline : outcome_using;
}

bool read_push(const cJSON *push, int code, bool dated, outcome *out)
{
    switch (code) {
    case 1008:
        *out = {
            dated ? outcome_late_history : outcome_history, 0, value_of(push, "appid"), value_of(push, "sumtime") / 60, 0, 0};
        return true;
    case 1012:
        *out = {outcome_payment, 0, value_of(push, "paytype"), 0, 0, 0};
        return true;
    case 1015:
        *out = {outcome_addiction, 0, value_of(push, "class_type"), value_of(push, "use_time"), 0, 0};
        return true;
    case 1021:
        *out = {outcome_eye_protection, 0, value_of(push, "appid"), value_of(push, "times") / 60, 0, 0};
        return true;
    case 1022:
        *out = {outcome_daydayup, 0, value_of(push, "appid"), 0, 0, 0};
        return true;
    case 1023:
        *out = {presence_kind(text_of(push, "status")),
                0,
                value_of(push, "appid"),
                value_of(push, "sumtime"),
                0,
                value_of(push, "starttime")};
        return true;
    default:
        return false;
    }
}

void read_line(push_watch &watch, const std::string &line, const scenario &household, moment now, std::vector<outcome> &out)
{
    json_tree root(cJSON_Parse(line.c_str()));
    const cJSON *data = cJSON_GetObjectItem(root.get(), "data");
    json_tree inner(cJSON_IsString(data) ? cJSON_Parse(data->valuestring) : nullptr);
    const cJSON *body = inner ? inner.get() : data;
    int code = static_cast<int>(value_of(root.get(), "code"));
    bool dated = value_of(root.get(), "occur_time") != 0;
    int objects = cJSON_IsArray(body) ? cJSON_GetArraySize(body) : 1;
    for (int i = 0; i < objects; i++) {
        const cJSON *push = cJSON_IsArray(body) ? cJSON_GetArrayItem(body, i) : body;
        outcome one = {};
        if (!read_push(push, code, dated, &one)) {
            watch.unreadable += !root || code != 0;
            return;
        }
        one.device = device_of_mac(household, text_of(push, "endmac"));
        one.at = now;
        out.push_back(one);
    }
}

} // namespace

std::vector<outcome> read_pushes(push_watch &watch, const scenario &household, moment now)
{
    std::vector<outcome> seen;
    if (!watch.file.is_open())
        watch.file.open(std::string(runtime_directory) + "/pushes.jsonl");
    watch.file.clear();
    char chunk[4096];
    while (watch.file.read(chunk, sizeof chunk), watch.file.gcount() > 0)
        watch.unfinished.append(chunk, static_cast<size_t>(watch.file.gcount()));
    for (size_t end; (end = watch.unfinished.find('\n')) != std::string::npos; watch.unfinished.erase(0, end + 1))
        read_line(watch, watch.unfinished.substr(0, end), household, now, seen);
    return seen;
}

std::vector<outcome> read_answer(const char *text, int device, moment now)
{
    std::vector<outcome> apps;
    json_tree root(text ? cJSON_Parse(text) : nullptr);
    const cJSON *item = nullptr;
    cJSON_ArrayForEach(item, cJSON_GetObjectItem(root.get(), "data"))
        apps.push_back(
            {outcome_answer, device, value_of(item, "appid"), value_of(item, "sumtime"), now, value_of(item, "starttime")});
    if (apps.empty())
        apps.push_back({outcome_answer, device, 0, 0, now, 0});
    return apps;
}
