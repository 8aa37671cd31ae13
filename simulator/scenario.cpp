#include "simulator/scenario.h"

#include "common/guards.h"

#include <cjson/cJSON.h>
#include <fstream>
#include <sstream>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>

namespace {

constexpr moment day_seconds = 24 * 60 * 60;

// Reads one file; the first thing found wrong with it stays in `complaint`.
struct reader {
    scenario *out;
    std::string complaint;

    void complain(const std::string &what)
    {
        if (complaint.empty())
            complaint = what;
    }
};

std::string text_of(const cJSON *object, const char *key)
{
    const char *text = cJSON_GetStringValue(cJSON_GetObjectItem(object, key));
    return text ? text : "";
}

u32 number_of(const cJSON *object, const char *key, u32 otherwise)
{
    const cJSON *item = cJSON_GetObjectItem(object, key);
    return cJSON_IsNumber(item) ? static_cast<u32>(item->valuedouble) : otherwise;
}

bool flag_of(const cJSON *object, const char *key, bool otherwise)
{
    const cJSON *item = cJSON_GetObjectItem(object, key);
    return cJSON_IsBool(item) ? cJSON_IsTrue(item) : otherwise;
}

moment time_of(reader &in, const cJSON *object, const char *key)
{
    int hour = 0, minute = 0, second = 0;
    std::string text = text_of(object, key);
    if (sscanf(text.c_str(), "%d:%d:%d", &hour, &minute, &second) < 2) {
        in.complain(std::string("\"") + key + "\" is no time: '" + text + "'");
        return in.out->start;
    }
    moment day = in.out->start - in.out->start % day_seconds;
    moment when = day + hour * 3600 + minute * 60 + second;
    return when < in.out->start ? when + day_seconds : when;
}

int device_named(reader &in, const cJSON *object)
{
    std::string name = text_of(object, "device");
    for (size_t i = 0; i < in.out->devices.size(); i++)
        if (in.out->devices[i].name == name)
            return static_cast<int>(i);
    in.complain("no device is called '" + name + "'");
    return 0;
}

u32 app_named(reader &in, const std::string &name)
{
    for (const app_entry &app : in.out->apps)
        if (app.name == name)
            return app.id;
    in.complain("no app is called '" + name + "'");
    return 0;
}

std::vector<u32> numbers_of(const cJSON *object, const char *key)
{
    std::vector<u32> numbers;
    const cJSON *item = nullptr;
    cJSON_ArrayForEach(item, cJSON_GetObjectItem(object, key))
        numbers.push_back(static_cast<u32>(item->valuedouble));
    return numbers;
}

app_entry read_app(reader &in, const cJSON *item)
{
    app_entry app{number_of(item, "id", 0), text_of(item, "name"), number_of(item, "class", 0), in.out->start};
    if (cJSON_GetObjectItem(item, "known_from"))
        app.known_from = time_of(in, item, "known_from");
    return app;
}

device_entry read_device(const cJSON *item)
{
    return {text_of(item, "name"),
            text_of(item, "mac"),
            text_of(item, "ip"),
            static_cast<int>(number_of(item, "role", 1)),
            static_cast<int>(number_of(item, "group", 1)),
            flag_of(item, "online", true)};
}

usage read_usage(reader &in, const cJSON *item)
{
    usage use{device_named(in, item),
              app_named(in, text_of(item, "app")),
              time_of(in, item, "from"),
              time_of(in, item, "to"),
              static_cast<int>(number_of(item, "every", 20)),
              number_of(item, "up", 2000),
              number_of(item, "down", 40000),
              numbers_of(item, "rules")};
    if (use.to < use.from || use.every < 1)
        in.complain("a use of '" + text_of(item, "app") + "' ends before it begins");
    if (use.rules.empty())
        use.rules = {use.app * 10 + 1, use.app * 10 + 2};
    return use;
}

// All five classes are set together, those that the file does not name switched off.
std::vector<use_limit> read_limits(reader &in, const cJSON *array)
{
    std::vector<use_limit> limits;
    for (u32 class_type = 1; class_type <= 5; class_type++)
        limits.push_back({class_type, 0, false, {}});
    const cJSON *item = nullptr;
    cJSON_ArrayForEach(item, array) {
        u32 class_type = number_of(item, "class", 0);
        if (class_type < 1 || class_type > 5) {
            in.complain("a limit's \"class\" is none of 1 to 5");
            break;
        }
        use_limit &limit = limits[class_type - 1];
        limit = {class_type, number_of(item, "minutes", 0), flag_of(item, "on", true), {}};
        const cJSON *name = nullptr;
        cJSON_ArrayForEach(name, cJSON_GetObjectItem(item, "apps"))
            limit.apps.push_back(app_named(in, cJSON_IsString(name) ? name->valuestring : ""));
    }
    return limits;
}

household_event read_event(reader &in, const cJSON *item)
{
    static constexpr struct {
        const char *name;
        event_kind kind;
    } kinds[] = {{"online", event_online}, {"offline", event_offline}, {"role", event_role},
                 {"limits", event_limits}, {"payment", event_payment}, {"ask", event_ask}};
    std::string what = text_of(item, "what");
    for (const auto &known : kinds)
        if (what == known.name)
            return {known.kind,
                    time_of(in, item, "at"),
                    device_named(in, item),
                    number_of(item, "number", 0),
                    number_of(item, "flows", 0),
                    numbers_of(item, "rules"),
                    read_limits(in, cJSON_GetObjectItem(item, "limits"))};
    in.complain("no event is called '" + what + "'");
    return {};
}

void read_tree(reader &in, const cJSON *root)
{
    scenario &out = *in.out;
    out.title = text_of(root, "title");
    struct tm start = {};
    if (!strptime(text_of(root, "start").c_str(), "%Y-%m-%d %H:%M:%S", &start))
        in.complain("\"start\" is not like 2026-03-14 18:59:00");
    out.start = timegm(&start);
    out.end = time_of(in, root, "end");
    const cJSON *item = nullptr;
    cJSON_ArrayForEach(item, cJSON_GetObjectItem(root, "apps"))
        out.apps.push_back(read_app(in, item));
    cJSON_ArrayForEach(item, cJSON_GetObjectItem(root, "devices"))
        out.devices.push_back(read_device(item));
    if (out.devices.empty() || out.apps.empty())
        in.complain("it has no devices or no apps");
    cJSON_ArrayForEach(item, cJSON_GetObjectItem(root, "usage"))
        out.usages.push_back(read_usage(in, item));
    cJSON_ArrayForEach(item, cJSON_GetObjectItem(root, "events"))
        out.events.push_back(read_event(in, item));
}

} // namespace

bool read_scenario(const std::string &path, scenario *out)
{
    std::ifstream file(path);
    std::stringstream text;
    text << file.rdbuf();
    json_tree root(cJSON_Parse(text.str().c_str()));
    reader in{out, ""};
    if (!file || !root)
        in.complain("cannot be read as JSON");
    else
        read_tree(in, root.get());
    if (!in.complaint.empty())
        fprintf(stderr, "%s: %s\n", path.c_str(), in.complaint.c_str());
    return in.complaint.empty();
}

const char *app_name(const scenario &household, u32 app)
{
    for (const app_entry &entry : household.apps)
        if (entry.id == app)
            return entry.name.c_str();
    return "an unknown app";
}

int device_of_mac(const scenario &household, const std::string &mac)
{
    for (size_t i = 0; i < household.devices.size(); i++)
        if (household.devices[i].mac == mac)
            return static_cast<int>(i);
    return -1;
}

std::string clock_text(moment when)
{
    time_t seconds = static_cast<time_t>(when);
    struct tm broken = {};
    gmtime_r(&seconds, &broken);
    char text[16];
    strftime(text, sizeof text, "%H:%M:%S", &broken);
    return text;
}
