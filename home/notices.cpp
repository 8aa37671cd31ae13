#include "home/notices.h"

#include "home/alerts.h"
#include "home/serve.h"
#include "platform/linux/client/limit_classes.h"

#include <algorithm>

namespace {

void add_number(cJSON *to, const char *key, int64_t value)
{
    cJSON_AddNumberToObject(to, key, static_cast<double>(value));
}

const char *payment_name(int64_t kind)
{
    constexpr const char *names[] = {"another kind", "Alipay", "WeChat Pay", "QQ Pay", "Apple Pay"};
    constexpr int64_t known = sizeof(names) / sizeof(*names);
    return names[kind > 0 && kind < known ? kind : 0];
}

// The sentence for people; what it is made of is in the object beside it.
std::string sentence(household *home, const alert_row &alert, const std::string &who)
{
    std::string app = app_name(home->apps, alert.app), minutes = std::to_string(alert.amount) + " minutes";
    switch (alert.kind) {
    case alert_payment:
        return who + ": a payment was made (" + payment_name(alert.category) + ")";
    case alert_limit:
        return who + ": " + minutes + " of " + class_name(static_cast<u32>(alert.category)) + " used up";
    case alert_break:
        return who + ": " + app + " for " + minutes + " without a break";
    default:
        return who + ": " + app + " is in use";
    }
}

std::string key_of(const char *name)
{
    return std::string("notices.") + name;
}

int64_t last_alert(database *db)
{
    return number_of(db, 0, "SELECT max(id) FROM alert");
}

void keep_place(notice_way *way)
{
    set_meta(&way->home->all.db, key_of(way->name).c_str(), way->done);
    way->home->all.db.commit_wanted = true;
}

// The number of an alert that was erased with its device may be given again.
void see_alert(void *context, const fact &news)
{
    notice_way *way = static_cast<notice_way *>(context);
    way->done = std::min(way->done, news.alert - 1);
}

} // namespace

void begin_way(notice_way *way, const char *name, const notice_kinds *kinds, household *home)
{
    *way = {name, kinds, home, 0, {}};
    int64_t last = last_alert(&home->all.db);
    way->done = std::min(meta_number(&home->all.db, key_of(name).c_str(), last), last);
    keep_place(way);
    home->all.listeners.push_back({fact_bit(fact_alert), see_alert, way});
    home->ways.push_back(way);
}

void forget_way(household *home, const char *name)
{
    if (!meta_text(&home->all.db, key_of(name).c_str()).empty())
        change(&home->all.db, "DELETE FROM meta WHERE key=?", key_of(name));
}

bool next_alert(notice_way *way, int64_t now, alert_row *found)
{
    database *db = &way->home->all.db;
    int64_t skipped = std::max<int64_t>(number_of(db, 0, "SELECT count(*) FROM alert WHERE id>?", way->done) - notices_most, 0);
    while (find_alert_after(db, way->done, found)) {
        bool wanted = way->kinds->wants(alert_name(found->kind));
        if (wanted && skipped == 0 && found->time + notice_too_old_after > now)
            return true;
        skipped = std::max<int64_t>(skipped - 1, 0);
        way->counts.skipped += wanted ? 1 : 0;
        way->done = found->id;
        keep_place(way);
    }
    return false;
}

void end_alert(notice_way *way, int64_t alert, int64_t notice_counts::*count)
{
    ++(way->counts.*count);
    way->done = alert;
    keep_place(way);
}

json_tree alert_json(household *home, const alert_row &alert, int64_t now)
{
    json_tree root(cJSON_CreateObject());
    cJSON *to = root.get();
    known_device device = {};
    find_known_device(&home->all.db, alert.device, &device);
    cJSON_AddStringToObject(to, "kind", alert_name(alert.kind));
    add_number(to, "id", alert.id);
    add_number(to, "time", alert.time);
    cJSON_AddBoolToObject(to, "late", alert.time + notice_late_after < now);
    cJSON_AddStringToObject(to, "device", device.mac.c_str());
    cJSON_AddStringToObject(to, "name", device.name.c_str());
    cJSON_AddStringToObject(to, "person", device.person_name.c_str());
    if (alert.app) {
        add_number(to, "app", alert.app);
        cJSON_AddStringToObject(to, "app_name", app_name(home->apps, alert.app).c_str());
    }
    if (alert.kind == alert_payment) {
        cJSON_AddStringToObject(to, "payment", payment_name(alert.category));
    } else {
        add_number(to, "class", alert.category);
        cJSON_AddStringToObject(to, "class_name", class_name(static_cast<u32>(alert.category)));
    }
    if (alert.kind == alert_limit || alert.kind == alert_break)
        add_number(to, "minutes", alert.amount);
    std::string who = device.name.empty() ? device.mac : device.name;
    cJSON_AddStringToObject(to, "text", sentence(home, alert, who).c_str());
    return root;
}
