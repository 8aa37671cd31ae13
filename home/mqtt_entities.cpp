#include "home/mqtt_entities.h"

#include "home/days.h"
#include "home/device_limits.h"
#include "home/mqtt_words.h"
#include "home/serve.h"
#include "platform/linux/client/limit_classes.h"

#include <algorithm>
#include <functional>
#include <time.h>

namespace {

constexpr int in_flight_most = 32;
// Facts come in bunches.
constexpr int64_t period_ms = 1000;
constexpr size_t devices_told_most = 500;

std::string device_topic(const mqtt_entities &entities, const std::string &mac, const char *what)
{
    return entities.base + "/" + mac + "/" + what;
}

// In lower case, with this between the bytes.
std::string spelled(const std::string &mac, const char *between)
{
    std::string text;
    for (char one : mac) {
        if (one == '-')
            text += between;
        else
            text += static_cast<char>(one >= 'A' ? one - 'A' + 'a' : one);
    }
    return text;
}

// "appident_aabbccddeeff"
std::string identity(const std::string &mac)
{
    return "appident_" + spelled(mac, "");
}

std::string configuration_topic(const mqtt_entities &entities, const std::string &mac)
{
    return entities.settings->discovery_prefix + "/device/" + identity(mac) + "/config";
}

using members = std::initializer_list<std::pair<const char *, std::string>>;

// One entity: its kind, what it is called, and where its value stands in the state.
cJSON *add_entity(cJSON *list, const std::string &mac, const std::string &key, const char *kind, const std::string &name,
                  members more)
{
    cJSON *entity = cJSON_AddObjectToObject(list, key.c_str());
    cJSON_AddStringToObject(entity, "p", kind);
    cJSON_AddStringToObject(entity, "uniq_id", (identity(mac) + "_" + key).c_str());
    cJSON_AddStringToObject(entity, "name", name.c_str());
    for (const auto &one : more)
        cJSON_AddStringToObject(entity, one.first, one.second.c_str());
    return entity;
}

std::string value_of(const std::string &path)
{
    return "{{ value_json." + path + " }}";
}

void add_minutes(cJSON *list, const std::string &mac, const std::string &key, const std::string &name, const std::string &path,
                 bool grows)
{
    cJSON *entity = add_entity(list, mac, key, "sensor", name,
                               {{"dev_cla", "duration"}, {"unit_of_meas", "min"}, {"val_tpl", value_of(path)}});
    if (grows)
        cJSON_AddStringToObject(entity, "stat_cla", "total_increasing");
}

void add_limit(const mqtt_entities &entities, cJSON *list, const std::string &mac, const mqtt_class &kind)
{
    std::string key = std::string("limit_") + kind.key, name = std::string(kind.name) + " limit",
                limits = device_topic(entities, mac, "limits"), set = limits + "/" + kind.key;
    cJSON *minutes = add_entity(list, mac, key, "number", name,
                                {{"stat_t", limits},
                                 {"val_tpl", value_of(std::string(kind.key) + ".minutes")},
                                 {"cmd_t", set + "/minutes/set"},
                                 {"mode", "box"},
                                 {"unit_of_meas", "min"},
                                 {"ent_cat", "config"}});
    cJSON_AddNumberToObject(minutes, "min", 1);
    cJSON_AddNumberToObject(minutes, "max", limit_minutes_most);
    cJSON_AddNumberToObject(minutes, "step", 1);
    add_entity(list, mac, key + "_on", "switch", name + " on",
               {{"stat_t", limits},
                {"val_tpl", value_of(std::string(kind.key) + ".on")},
                {"cmd_t", set + "/on/set"},
                {"ent_cat", "config"}});
}

void add_alert_entity(const mqtt_entities &entities, cJSON *list, const std::string &mac)
{
    cJSON *alert = add_entity(list, mac, "alert", "event", "Alert",
                              {{"stat_t", device_topic(entities, mac, "alert")}, {"ic", "mdi:bell-alert"}});
    cJSON *kinds = cJSON_AddArrayToObject(alert, "evt_typ");
    for (const char *kind : {"limit", "break", "first_use", "payment"})
        cJSON_AddItemToArray(kinds, cJSON_CreateString(kind));
}

std::string configuration_of(const mqtt_entities &entities, const known_device &one)
{
    json_tree root(cJSON_CreateObject());
    cJSON *to = root.get(), *device = cJSON_AddObjectToObject(to, "dev");
    std::string id = identity(one.mac), address = spelled(one.mac, ":");
    const char *ids[] = {id.c_str()}, *connection[] = {"mac", address.c_str()};
    cJSON_AddItemToObject(device, "ids", cJSON_CreateStringArray(ids, 1));
    cJSON_AddItemToArray(cJSON_AddArrayToObject(device, "cns"), cJSON_CreateStringArray(connection, 2));
    cJSON_AddStringToObject(device, "name", one.name.empty() ? one.mac.c_str() : one.name.c_str());
    cJSON *origin = cJSON_AddObjectToObject(to, "o");
    cJSON_AddStringToObject(origin, "name", "appident-home");
    cJSON_AddStringToObject(origin, "sw", APPIDENT_VERSION);
    cJSON_AddStringToObject(to, "avty_t", (entities.base + "/availability").c_str());
    cJSON_AddStringToObject(to, "stat_t", device_topic(entities, one.mac, "state").c_str());
    cJSON_AddNumberToObject(to, "qos", 1);
    cJSON *list = cJSON_AddObjectToObject(to, "cmps");
    add_entity(list, one.mac, "in_use", "binary_sensor", "In use",
               {{"val_tpl", value_of("in_use")}, {"ic", "mdi:cellphone-play"}});
    add_entity(list, one.mac, "on_line", "binary_sensor", "On line",
               {{"val_tpl", value_of("on_line")}, {"dev_cla", "connectivity"}, {"ent_cat", "diagnostic"}});
    add_entity(list, one.mac, "app", "sensor", "App in use", {{"val_tpl", value_of("app")}, {"ic", "mdi:apps"}});
    add_minutes(list, one.mac, "session", "This session", "session_minutes", false);
    add_minutes(list, one.mac, "today", "Use today", "today.all", true);
    for (const mqtt_class &kind : mqtt_classes)
        add_minutes(list, one.mac, std::string("today_") + kind.key, std::string(kind.name) + " today",
                    std::string("today.") + kind.key, true);
    add_alert_entity(entities, list, one.mac);
    for (const mqtt_class &kind : mqtt_classes)
        if (entities.settings->limits && kind.has_minutes && one.role == 1)
            add_limit(entities, list, one.mac, kind);
    heap_text text(cJSON_PrintUnformatted(to));
    return text ? text.get() : "";
}

// What is in use, and what the day has summed up to.
struct present {
    std::map<int64_t, session> in_use;               // by device: the latest
    std::map<int64_t, std::map<u32, int64_t>> today; // minutes by device and class of limits; class 0: all
};

present read_present(household *home)
{
    present now;
    for (const session &one : sessions_now(&home->all.db))
        now.in_use[one.device] = one.start >= now.in_use[one.device].start ? one : now.in_use[one.device];
    int today = day_of(time(nullptr));
    for (const use_row &row : use_between(&home->all.db, today, today)) {
        u32 kind = limit_class_of(static_cast<u32>(app_class(home->apps, row.app)));
        now.today[row.device][0] += row.minutes;
        if (kind)
            now.today[row.device][kind] += row.minutes;
    }
    return now;
}

std::string state_of(const household &home, present *now, const known_device &one)
{
    auto session_now = now->in_use.find(one.id);
    bool in_use = session_now != now->in_use.end();
    json_tree root(cJSON_CreateObject());
    cJSON *to = root.get();
    cJSON_AddStringToObject(to, "in_use", in_use ? "ON" : "OFF");
    cJSON_AddStringToObject(to, "on_line", one.on_line ? "ON" : "OFF");
    cJSON_AddStringToObject(to, "app", in_use ? app_name(home.apps, session_now->second.app).c_str() : "none");
    cJSON_AddNumberToObject(to, "session_minutes", in_use ? static_cast<double>(session_now->second.minutes) : 0);
    cJSON *today = cJSON_AddObjectToObject(to, "today");
    cJSON_AddNumberToObject(today, "all", static_cast<double>(now->today[one.id][0]));
    for (const mqtt_class &kind : mqtt_classes)
        cJSON_AddNumberToObject(today, kind.key, static_cast<double>(now->today[one.id][kind.number]));
    heap_text text(cJSON_PrintUnformatted(to));
    return text ? text.get() : "";
}

std::string limits_of(const household &home, const std::string &mac)
{
    auto known = home.limits.find(mac);
    if (known == home.limits.end())
        return "";
    json_tree root(cJSON_CreateObject());
    for (const mqtt_class &kind : mqtt_classes) {
        if (!kind.has_minutes)
            continue;
        auto limit = known->second.find(kind.number);
        known_limit now = limit == known->second.end() ? known_limit{false, 0} : limit->second;
        cJSON *one = cJSON_AddObjectToObject(root.get(), kind.key);
        // What it will be when it is switched on.
        cJSON_AddNumberToObject(one, "minutes", static_cast<double>(now.minutes > 0 ? now.minutes : limit_minutes_usual));
        cJSON_AddStringToObject(one, "on", now.on ? "ON" : "OFF");
    }
    heap_text text(cJSON_PrintUnformatted(root.get()));
    return text ? text.get() : "";
}

// Sends a text that is another than before. True when the broker has, or will have, this one.
bool send(mqtt_entities *entities, const std::string &topic, const std::string &text, size_t *told)
{
    constexpr size_t never = 1; // no digest stands for nothing
    size_t digest = std::hash<std::string>()(text) | never;
    if (digest == *told)
        return true;
    if (in_flight(entities->link) >= in_flight_most || !publish(entities->link, topic, text, true))
        return false;
    *told = digest;
    return true;
}

bool send_device(mqtt_entities *entities, present *now, const known_device &one)
{
    told_device *told = &entities->told[one.mac];
    std::string limits = entities->settings->limits ? limits_of(*entities->home, one.mac) : "";
    return send(entities, configuration_topic(*entities, one.mac), configuration_of(*entities, one), &told->configuration) &&
           send(entities, device_topic(*entities, one.mac, "state"), state_of(*entities->home, now, one), &told->state) &&
           (limits.empty() || send(entities, device_topic(*entities, one.mac, "limits"), limits, &told->limits));
}

// An empty text takes a retained one away.
bool remove_device(mqtt_entities *entities, const std::string &mac)
{
    if (in_flight(entities->link) >= in_flight_most)
        return false;
    for (const std::string &topic :
         {configuration_topic(*entities, mac), device_topic(*entities, mac, "state"), device_topic(*entities, mac, "limits")})
        publish(entities->link, topic, "", true);
    return true;
}

// The devices that are watched, or may be.
std::vector<known_device> devices_to_tell(household *home)
{
    std::vector<known_device> all = list_devices(&home->all.db);
    all.erase(std::remove_if(all.begin(), all.end(), [](const known_device &one) { return one.role == 0; }), all.end());
    std::sort(all.begin(), all.end(), [](const known_device &a, const known_device &b) { return a.last_seen > b.last_seen; });
    all.resize(std::min(all.size(), devices_told_most));
    return all;
}

} // namespace

void begin_entities(mqtt_entities *entities, household *home, mqtt_link *link, const mqtt_settings *settings,
                    const std::string &base)
{
    *entities = {home, link, settings, base, {}, true, 0};
}

void tell_all_again(mqtt_entities *entities)
{
    for (auto &one : entities->told)
        one.second = {};
    entities->wanted = true;
    entities->next_ms = 0;
}

void note_told(mqtt_entities *entities, const std::string &mac)
{
    entities->told.emplace(mac, told_device());
    entities->wanted = true;
}

void send_entities(mqtt_entities *entities, int64_t now_ms)
{
    if (!entities->wanted || now_ms < entities->next_ms || !is_up(entities->link))
        return;
    entities->next_ms = now_ms + period_ms;
    present now = read_present(entities->home);
    std::vector<known_device> devices = devices_to_tell(entities->home);
    bool all_sent = true;
    for (const known_device &one : devices)
        all_sent = all_sent && send_device(entities, &now, one);
    for (auto one = entities->told.begin(); all_sent && one != entities->told.end();) {
        bool known = std::any_of(devices.begin(), devices.end(), [&](const known_device &it) { return it.mac == one->first; });
        all_sent = known || remove_device(entities, one->first);
        one = known || !all_sent ? std::next(one) : entities->told.erase(one);
    }
    entities->wanted = !all_sent;
}
