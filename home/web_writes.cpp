// Names, roles, persons, limits and payment switches of a device: shown, and changed by parents.
#include "home/daemon_count.h"
#include "home/daemon_settings.h"
#include "home/device_limits.h"
#include "home/devices.h"
#include "home/web_routes.h"
#include "platform/linux/client/json_text.h"
#include "platform/linux/client/limit_classes.h"
#include "platform/linux/client/limits_text.h"
#include "platform/linux/client/payment_switches.h"

#include <math.h>

namespace {

constexpr size_t device_name_given_most = 32, person_name_most = 63; // bytes; the platform library takes no longer names
constexpr int64_t minutes_most = 24 * 60;

// -1 for a member that is missing; false for one that is no whole number up to `most`.
bool body_number(const cJSON *object, const char *key, int64_t most, int64_t *out)
{
    const cJSON *item = cJSON_GetObjectItemCaseSensitive(object, key);
    double value = cJSON_IsNumber(item) ? item->valuedouble : -1;
    *out = item ? static_cast<int64_t>(value) : -1;
    return !item || (value >= 0 && value <= static_cast<double>(most) && value == floor(value));
}

bool is_on(const cJSON *limit)
{
    return cJSON_GetNumberValue(cJSON_GetObjectItemCaseSensitive(limit, "onoff")) == 1;
}

int64_t minutes_of(const cJSON *limit)
{
    const cJSON *minutes = cJSON_GetObjectItemCaseSensitive(limit, "use_time");
    return is_on(limit) && cJSON_IsNumber(minutes) ? static_cast<int64_t>(minutes->valuedouble) : 0;
}

// "games 60, learning"
std::string summary_of(const cJSON *limits)
{
    std::string text;
    for (const limit_class &one : limit_classes) {
        const cJSON *limit = find_limit(limits, one.class_type);
        if (!is_on(limit))
            continue;
        text += (text.empty() ? "" : ", ") + std::string(one.name);
        if (one.by_minutes)
            text += " " + std::to_string(minutes_of(limit));
    }
    return text.empty() ? "none" : text;
}

// What the page wants of one class, put into the limit that is stored. False when it makes no sense.
bool apply_limit(const cJSON *wanted, cJSON *stored, const app_names &known)
{
    int64_t class_type = 0, minutes = 0;
    const cJSON *on = cJSON_GetObjectItemCaseSensitive(wanted, "on"), *apps = cJSON_GetObjectItemCaseSensitive(wanted, "apps");
    if (!body_number(wanted, "class", 5, &class_type) || !body_number(wanted, "minutes", minutes_most, &minutes) ||
        class_type < 1 || (on && !cJSON_IsBool(on)) || (apps && !cJSON_IsArray(apps)))
        return false;
    const limit_class &about = limit_classes[class_type - 1];
    cJSON *limit = find_limit(stored, about.class_type);
    bool is_wanted = on ? cJSON_IsTrue(on) : minutes > 0;
    put_member(limit, "onoff", cJSON_CreateNumber(is_wanted));
    if (minutes >= 0)
        put_member(limit, "use_time", cJSON_CreateNumber(static_cast<double>(minutes)));
    if (is_wanted && about.by_minutes && minutes_of(limit) == 0)
        return false;
    // A limit that is on and counts no app would never be told.
    bool needs_apps = is_wanted && about.by_app;
    if (apps && !(needs_apps && cJSON_GetArraySize(apps) == 0))
        put_member(limit, "appid", cJSON_Duplicate(apps, true));
    else if (needs_apps && cJSON_GetArraySize(cJSON_GetObjectItemCaseSensitive(limit, "appid")) == 0)
        put_member(limit, "appid", apps_of_class(known, about.class_type));
    return true;
}

void answer_with_limits(const web_request &asked, const known_device &device, const cJSON *limits, web_answer *answer)
{
    count_start began = daemon_count_start(asked.home, device, asked.time);
    json_tree body(cJSON_CreateObject());
    add_text(body.get(), "device", device.mac);
    cJSON *list = cJSON_AddArrayToObject(body.get(), "limits");
    for (const limit_class &one : limit_classes) {
        const cJSON *limit = find_limit(limits, one.class_type), *app = nullptr;
        cJSON *item = add_item(list);
        add_number(item, "class", one.class_type);
        add_text(item, "class_name", one.name);
        cJSON_AddBoolToObject(item, "on", is_on(limit));
        add_number(item, "minutes", minutes_of(limit));
        std::vector<u32> ids;
        cJSON *apps = cJSON_AddArrayToObject(item, "apps");
        cJSON_ArrayForEach(app, cJSON_GetObjectItemCaseSensitive(limit, "appid")) {
            ids.push_back(static_cast<u32>(cJSON_IsNumber(app) ? app->valuedouble : 0));
            cJSON_AddItemToArray(apps, cJSON_CreateNumber(ids.back()));
        }
        add_number(item, "used_minutes", minutes_counted(&asked.home->all.db, device.id, one.class_type, ids, began.time));
    }
    add_number(body.get(), "count_since", began.time);
    answer_with(answer, body);
}

void answer_with_payments(const appident_payment_notify_st &switches, web_answer *answer)
{
    json_tree body(cJSON_CreateObject());
    add_text(body.get(), "device", switches.mac);
    cJSON *payments = cJSON_AddObjectToObject(body.get(), "payments");
    for (const payment_switch &one : payment_switches)
        cJSON_AddBoolToObject(payments, one.key, switches.*one.field != 0);
    answer_with(answer, body);
}

std::string payments_summary(const appident_payment_notify_st &switches)
{
    std::string text;
    for (const payment_switch &one : payment_switches)
        if (switches.*one.field)
            text += (text.empty() ? "" : ", ") + std::string(one.key);
    return text.empty() ? "none" : text;
}

// The name and role that the daemon keeps.
bool change_at_daemon(const web_request &asked, const known_device &device, const std::string *name, int64_t role)
{
    if (!name && role < 0)
        return true;
    if (!write_device(asked.home, device.mac, name, role))
        return false;
    if (name)
        note_change(asked, device.mac, "name", device.name, *name);
    if (role >= 0)
        note_change(asked, device.mac, "role", std::to_string(device.role), std::to_string(role));
    return true;
}

void change_person(const web_request &asked, const known_device &device, const std::string &person)
{
    history *all = &asked.home->all;
    change(&all->db, "UPDATE device SET person=nullif(?2,0) WHERE id=?1", device.id, person_row(&all->db, person));
    change(&all->db,
           "DELETE FROM person WHERE id NOT IN(SELECT person FROM device WHERE person IS NOT NULL UNION SELECT person "
           "FROM account WHERE person IS NOT NULL)");
    note_change(asked, device.mac, "person", device.person_name, person);
    add_fact(all, {fact_device, asked.time, device.id, 0, 0, 0, ""});
    tell_facts(all);
}

} // namespace

void answer_put_device(web_request *asked, web_answer *answer)
{
    constexpr int64_t role_most = 2;
    known_names known = names_for(*asked);
    const known_device *device = named_device(*asked, known, answer);
    if (!device)
        return;
    std::string name, person;
    int64_t role = -1;
    bool has_name = cJSON_HasObjectItem(asked->body.get(), "name"),
         has_person = cJSON_HasObjectItem(asked->body.get(), "person");
    if (!body_text(*asked, "name", device_name_given_most, "", &name) ||
        !body_text(*asked, "person", person_name_most, "", &person) ||
        !body_number(asked->body.get(), "role", role_most, &role))
        return refuse(answer, refused_bad_request);
    if (!change_at_daemon(*asked, *device, has_name ? &name : nullptr, role))
        return refuse(answer, refused_daemon_silent);
    if (has_person && person != device->person_name)
        change_person(*asked, *device, person);
    answer_devices(asked, answer);
}

void answer_delete_device(web_request *asked, web_answer *answer)
{
    known_names known = names_for(*asked);
    const known_device *device = named_device(*asked, known, answer);
    if (!device)
        return;
    if (!forget_device(&asked->home->all, device->mac))
        return refuse(answer, refused_busy);
    note_change(*asked, "", "forgot a device", "", "");
    answer_devices(asked, answer);
}

void answer_limits(web_request *asked, web_answer *answer)
{
    known_names known = names_for(*asked);
    const known_device *device = named_device(*asked, known, answer);
    json_tree tree;
    const cJSON *limits = nullptr;
    if (!device)
        return;
    if (!read_limits(*asked->home, device->mac, &tree, &limits))
        return refuse(answer, refused_daemon_silent);
    answer_with_limits(*asked, *device, limits, answer);
}

void answer_put_limits(web_request *asked, web_answer *answer)
{
    known_names known = names_for(*asked);
    const known_device *device = named_device(*asked, known, answer);
    const cJSON *given = cJSON_GetObjectItemCaseSensitive(asked->body.get(), "limits"), *limits = nullptr, *one = nullptr;
    json_tree tree;
    if (!device)
        return;
    // The daemon keeps limits of role 1 only.
    if (device->role != 1 || !cJSON_IsArray(given))
        return refuse(answer, refused_bad_request);
    if (!read_limits(*asked->home, device->mac, &tree, &limits))
        return refuse(answer, refused_daemon_silent);
    json_tree whole = compose_limits(device->mac, limits);
    cJSON *wanted = cJSON_GetObjectItemCaseSensitive(whole.get(), "data");
    cJSON_ArrayForEach(one, given) {
        if (!apply_limit(one, wanted, asked->home->apps))
            return refuse(answer, refused_bad_request);
    }
    if (!limits_fault(wanted).empty())
        return refuse(answer, refused_bad_request);
    if (!write_limits(*asked->home, device->mac, wanted))
        return refuse(answer, refused_daemon_silent);
    note_change(*asked, device->mac, "limits", summary_of(limits), summary_of(wanted));
    answer_with_limits(*asked, *device, wanted, answer);
}

void answer_payments(web_request *asked, web_answer *answer)
{
    known_names known = names_for(*asked);
    const known_device *device = named_device(*asked, known, answer);
    appident_payment_notify_st switches;
    if (!device)
        return;
    if (!read_payments(*asked->home, device->mac, &switches))
        return refuse(answer, refused_daemon_silent);
    answer_with_payments(switches, answer);
}

void answer_put_payments(web_request *asked, web_answer *answer)
{
    known_names known = names_for(*asked);
    const known_device *device = named_device(*asked, known, answer);
    const cJSON *given = cJSON_GetObjectItemCaseSensitive(asked->body.get(), "payments");
    appident_payment_notify_st before, after;
    if (!device)
        return;
    if (!cJSON_IsObject(given))
        return refuse(answer, refused_bad_request);
    if (!read_payments(*asked->home, device->mac, &before))
        return refuse(answer, refused_daemon_silent);
    after = before;
    for (const payment_switch &one : payment_switches) {
        const cJSON *wanted = cJSON_GetObjectItemCaseSensitive(given, one.key);
        if (wanted && !cJSON_IsBool(wanted))
            return refuse(answer, refused_bad_request);
        if (wanted)
            after.*one.field = cJSON_IsTrue(wanted);
    }
    if (!write_payments(*asked->home, device->mac, after))
        return refuse(answer, refused_daemon_silent);
    note_change(*asked, device->mac, "payments", payments_summary(before), payments_summary(after));
    answer_with_payments(after, answer);
}
