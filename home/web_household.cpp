// How fresh the history is, the household's devices and persons, the apps, and who changed what.
#include "home/daemon_count.h"
#include "home/days.h"
#include "home/web_routes.h"
#include "home/web_state.h"
#include "platform/linux/client/limit_classes.h"

#include <algorithm>
#include <stdlib.h>
#include <time.h>

namespace {

void add_counts_began(cJSON *root, const web_request &asked, const known_names &known, int64_t day_began)
{
    cJSON *list = cJSON_AddArrayToObject(root, "counts_began");
    for (const auto &entry : known.devices) {
        count_start began = daemon_count_start(asked.home, entry.second, asked.time);
        if (entry.second.role != 1 || began.time <= day_began)
            continue;
        cJSON *item = add_item(list);
        add_text(item, "device", entry.second.mac);
        add_number(item, "time", began.time);
        add_text(item, "why", began.why);
    }
}

void add_person(cJSON *to, int64_t id, const std::string &name)
{
    add_number(to, "id", id);
    add_text(to, "name", name);
}

} // namespace

void answer_status(web_request *asked, web_answer *answer)
{
    household *home = asked->home;
    const home_settings &settings = *home->settings;
    int today = day_of(asked->time);
    time_t now = static_cast<time_t>(asked->time);
    tm local = {};
    localtime_r(&now, &local);
    int64_t last_push = home->all.place.last_time, heard = std::max(last_push, home->truth.answered);
    json_tree body(cJSON_CreateObject());
    add_number(body.get(), "time", asked->time);
    add_text(body.get(), "time_zone", local.tm_zone ? local.tm_zone : "");
    add_text(body.get(), "version", APPIDENT_VERSION);
    add_number(body.get(), "last_push", last_push);
    add_number(body.get(), "behind_seconds", heard ? std::max<int64_t>(asked->time - heard, 0) : -1);
    add_number(body.get(), "commit_interval_seconds", settings.commit_interval);
    cJSON *daemon = cJSON_AddObjectToObject(body.get(), "daemon");
    cJSON_AddBoolToObject(daemon, "up", home->truth.answers);
    add_number(daemon, "since", daemon_began(home, asked->time));
    add_number(daemon, "asked", home->truth.answered);
    add_text(body.get(), "day", day_text(today));
    add_number(body.get(), "day_start", day_start(today));
    add_number(body.get(), "day_end", day_end(today));
    add_number(body.get(), "retention_days", settings.session_days);
    add_counts_began(body.get(), *asked, names_for(*asked), day_start(today));
    answer_with(answer, body);
}

void answer_devices(web_request *asked, web_answer *answer)
{
    known_names known = names_for(*asked);
    json_tree body(cJSON_CreateObject());
    cJSON *devices = cJSON_AddArrayToObject(body.get(), "devices");
    for (const auto &entry : known.devices) {
        const known_device &one = entry.second;
        cJSON *item = add_item(devices);
        add_text(item, "mac", one.mac);
        add_text(item, "name", one.name);
        add_text(item, "name_from", one.name_from);
        add_number(item, "role", one.role);
        add_text(item, "role_from", one.role_from);
        if (one.person)
            add_person(cJSON_AddObjectToObject(item, "person"), one.person, one.person_name);
        else
            cJSON_AddNullToObject(item, "person");
        add_text(item, "address", one.address);
        cJSON_AddBoolToObject(item, "on_line", one.on_line);
        cJSON_AddBoolToObject(item, "private_mac", one.private_mac);
        add_number(item, "first_seen", one.first_seen);
        add_number(item, "last_seen", one.last_seen);
    }
    cJSON *persons = cJSON_AddArrayToObject(body.get(), "persons");
    for (const known_person &one : list_persons(&asked->home->all.db))
        if (asked->who.kind != kind_child || one.id == asked->who.person)
            add_person(add_item(persons), one.id, one.name);
    answer_with(answer, body);
}

void answer_apps(web_request *asked, web_answer *answer)
{
    const app_names &known = asked->home->apps;
    json_tree body(cJSON_CreateObject());
    cJSON *apps = cJSON_AddArrayToObject(body.get(), "apps");
    for (const auto &entry : known.names) {
        cJSON *item = add_item(apps);
        add_number(item, "id", entry.first);
        add_text(item, "name", entry.second);
        add_number(item, "class", limit_class_of(static_cast<u32>(app_class(known, entry.first))));
    }
    cJSON *classes = cJSON_AddArrayToObject(body.get(), "classes");
    for (const limit_class &one : limit_classes) {
        cJSON *item = add_item(classes);
        add_number(item, "class", one.class_type);
        add_text(item, "name", one.name);
        add_text(item, "what", one.meaning);
    }
    answer_with(answer, body);
}

void answer_changes(web_request *asked, web_answer *answer)
{
    constexpr int64_t usual = 100, most = 1000;
    std::string wanted = query_value(*asked, "most");
    int64_t rows = wanted.empty() ? usual : std::min<int64_t>(std::max(atoll(wanted.c_str()), 0ll), most);
    json_tree body(cJSON_CreateObject());
    cJSON *list = cJSON_AddArrayToObject(body.get(), "changes");
    for (const change_row &one : latest_changes(&asked->home->all.db, rows)) {
        cJSON *item = add_item(list);
        add_number(item, "time", one.time);
        add_text(item, "account", one.account);
        add_text(item, "address", one.address);
        add_text(item, "device", one.device);
        add_text(item, "what", one.what);
        add_text(item, "before", one.before);
        add_text(item, "after", one.after);
    }
    answer_with(answer, body);
}
