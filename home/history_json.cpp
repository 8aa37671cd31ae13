#include "home/history_json.h"

#include "home/alerts.h"
#include "home/days.h"
#include "platform/linux/client/limit_classes.h"

namespace {

void add_device(cJSON *to, const known_names &known, int64_t device)
{
    add_text(to, "device", known.devices.find(device)->second.mac);
}

void add_bytes(cJSON *to, int64_t up, int64_t down)
{
    add_number(to, "bytes", up + down);
    add_number(to, "up_bytes", up);
    add_number(to, "down_bytes", down);
}

} // namespace

known_names all_names(database *db, const app_names &apps)
{
    known_names known = {{}, &apps};
    for (known_device &one : list_devices(db)) {
        int64_t id = one.id;
        known.devices.emplace(id, std::move(one));
    }
    return known;
}

void add_number(cJSON *to, const char *key, int64_t value)
{
    cJSON_AddNumberToObject(to, key, static_cast<double>(value));
}

void add_text(cJSON *to, const char *key, const std::string &value)
{
    cJSON_AddStringToObject(to, key, value.c_str());
}

cJSON *add_item(cJSON *list)
{
    cJSON *item = cJSON_CreateObject();
    cJSON_AddItemToArray(list, item);
    return item;
}

void add_app(cJSON *to, const known_names &known, u32 app)
{
    add_number(to, "app", app);
    add_text(to, "app_name", app_name(*known.apps, app));
    add_number(to, "class", limit_class_of(static_cast<u32>(app_class(*known.apps, app))));
}

void add_sessions(cJSON *root, database *db, const known_names &known, int64_t from, int64_t to)
{
    cJSON *list = cJSON_AddArrayToObject(root, "sessions");
    for (const session &one : sessions_between(db, from, to)) {
        if (known.devices.count(one.device) == 0)
            continue;
        cJSON *item = add_item(list);
        add_device(item, known, one.device);
        add_app(item, known, one.app);
        add_number(item, "start", one.start);
        add_number(item, "end", one.end);
        add_number(item, "minutes", one.minutes);
        add_bytes(item, one.up, one.down);
        add_text(item, "state", state_name(one.state));
    }
}

void add_days(cJSON *root, database *db, const known_names &known, int from, int to)
{
    cJSON *list = cJSON_AddArrayToObject(root, "days");
    for (const use_row &one : use_between(db, from, to)) {
        if (known.devices.count(one.device) == 0)
            continue;
        cJSON *item = add_item(list);
        add_text(item, "day", day_text(one.day));
        add_device(item, known, one.device);
        add_app(item, known, one.app);
        add_number(item, "minutes", one.minutes);
        add_bytes(item, one.up, one.down);
    }
}

void add_alerts(cJSON *root, database *db, const known_names &known, int64_t from, int64_t to, size_t most)
{
    cJSON *list = cJSON_AddArrayToObject(root, "alerts");
    std::vector<alert_row> told;
    for (alert_row &one : alerts_since(db, from, -1))
        if (one.time < to && known.devices.count(one.device) > 0)
            told.push_back(std::move(one));
    for (size_t i = told.size() > most ? told.size() - most : 0; i < told.size(); ++i) {
        const alert_row &one = told[i];
        cJSON *item = add_item(list);
        add_number(item, "id", one.id);
        add_number(item, "time", one.time);
        add_device(item, known, one.device);
        add_text(item, "kind", alert_name(one.kind));
        if (one.app) {
            add_number(item, "app", one.app);
            add_text(item, "app_name", app_name(*known.apps, one.app));
        }
        add_number(item, "class", one.category);
        add_number(item, "amount", one.amount);
    }
}

void add_gaps(cJSON *root, database *db, int64_t from, int64_t to)
{
    cJSON *list = cJSON_AddArrayToObject(root, "gaps");
    for (const gap_row &one : gaps_between(db, from, to)) {
        cJSON *item = add_item(list);
        add_number(item, "start", one.start);
        add_number(item, "end", one.end);
        add_number(item, "lost", one.lost);
        add_text(item, "why", one.why);
    }
}
