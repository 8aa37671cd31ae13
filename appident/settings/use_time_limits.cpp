#include "appident/settings/use_time_limits.h"

#include "appident/pushes/push_alerts.h"
#include "appident/router/device_service.h"
#include "appident/settings/config_file.h"
#include "appident/settings/json_fields.h"
#include "common/log.h"
#include "igd/igd_lib.h"

#include <string.h>

namespace {

// The big class (the one that has a limit) of each small class of the catalogue, from small class 0 on; 0 for none.
constexpr uint8_t big_classes[] = {0, 1, 3, 2, 2, 2, 3, 3, 3, 3, 4, 0, 0, 3, 3};

u32 big_class(long small_class)
{
    constexpr long known = sizeof(big_classes);
    return small_class >= 0 && small_class < known ? big_classes[small_class] : 0;
}

bool is_app_id(const cJSON *item, u32 *app_id)
{
    return read_number(item, UINT32_MAX, app_id) && *app_id != 0; // 0 marks a free entry
}

// The entry that holds the app, or the first free one; null when neither is there. Entries fill from the front.
app_id_st *find_entry(use_time_limit &limit, u32 app_id)
{
    for (app_id_st &entry : limit.app_ids) {
        if (entry.app_id == app_id || entry.app_id == 0)
            return &entry;
    }
    return nullptr;
}

use_time_limit *limit_of_class(device_record *dev, u32 class_type)
{
    for (use_time_limit &limit : dev->utl) {
        if (limit.class_type == class_type)
            return &limit;
    }
    return nullptr;
}

// Asks for the catalogue. False when the service does not answer; *raw and *ret are its answer and result.
bool ask_catalogue(heap_text *raw, int *ret)
{
    char *answer = nullptr;
    *ret = call_cgi(catalogue_path, nullptr, &answer);
    raw->reset(answer);
    return *ret != 0 && answer;
}

// Makes the catalogue's list the file's own "appids" and stores the file.
void store_catalogue(const char *mac_str, cJSON *root, cJSON *catalogue, cJSON *data)
{
    if (!put_member(root, "appids", cJSON_DetachItemViaPointer(catalogue, data)))
        return;
    heap_text text(cJSON_PrintUnformatted(root));
    if (text)
        replace_config(mac_str, text.get());
}

void fetch_first_catalogue(const char *mac_str, cJSON *root)
{
    url_check_log(0, "[app_ident] load_device_config -> old config has no appids");
    heap_text answer;
    int ret = 0;
    if (!ask_catalogue(&answer, &ret)) {
        url_check_log(0, "[app_ident] get_user_apps.cgi failed ret:%d  res:%s", ret, answer ? answer.get() : "");
        return;
    }
    cJSON *data = nullptr;
    json_tree catalogue = parse_service_answer(answer.get(), &data);
    if (catalogue)
        store_catalogue(mac_str, root, catalogue.get(), data);
}

// Adds the catalogue's apps of a class without limiting them. Apps that are in the slot already stay, so that one may be there
// twice.
void list_class_apps(use_time_limit &limit, const cJSON *app_ids)
{
    int next = 0;
    const cJSON *item = nullptr;
    cJSON_ArrayForEach(item, app_ids) {
        u32 app_id = 0;
        if (!is_app_id(item, &app_id))
            continue;
        while (next < apps_per_limit && limit.app_ids[next].app_id != 0)
            ++next;
        if (next == apps_per_limit)
            return;
        limit.app_ids[next].app_id = app_id;
    }
}

void read_catalogue(device_record *dev, const cJSON *catalogue)
{
    int num = cJSON_GetArraySize(catalogue);
    if (num > 0)
        url_check_log(0, "[app_ident] load_device_config %s -> [%d] ========================exists app======================",
                      dev->mac, num);
    const cJSON *group = nullptr;
    cJSON_ArrayForEach(group, catalogue) {
        long small_class = 0;
        if (!service_integer(group, "class_type", &small_class))
            continue;
        url_check_log(0, "class_type = %d", static_cast<int>(small_class));
        u32 class_type = big_class(small_class);
        if (class_type == 0)
            continue;
        url_check_log(0, "\t\tclass_type: %d", static_cast<int>(class_type));
        use_time_limit &limit = dev->utl[class_type - 1];
        limit.class_type = class_type;
        const cJSON *app_ids = array_member(group, "appid");
        int count = cJSON_GetArraySize(app_ids);
        if (count == 0)
            continue;
        url_check_log(0, "\t\tappid count: %d", count);
        list_class_apps(limit, app_ids);
    }
}

void check_apps(use_time_limit &limit, const cJSON *app_ids, int count)
{
    limit.app_id_num = static_cast<u32>(count < apps_per_limit ? count : apps_per_limit);
    memset(limit.app_ids, 0, sizeof(limit.app_ids));
    const cJSON *item = nullptr;
    cJSON_ArrayForEach(item, app_ids) {
        u32 app_id = 0;
        if (!is_app_id(item, &app_id))
            continue;
        app_id_st *entry = find_entry(limit, app_id);
        if (!entry)
            return;
        *entry = {app_id, 1};
    }
}

void read_limit(device_record *dev, const cJSON *stored)
{
    u32 class_type = 0;
    if (!number_member(stored, "class_type", UINT32_MAX, &class_type) || class_type == 0)
        return;
    use_time_limit *limit = nullptr;
    for (use_time_limit &slot : dev->utl) {
        if (slot.class_type == class_type || slot.class_type == 0) {
            limit = &slot;
            break;
        }
    }
    if (!limit)
        return;
    limit->class_type = class_type;
    url_check_log(0, "\t\tclass_type: %d", static_cast<int>(class_type));
    u32 onoff = 0;
    if (number_member(stored, "onoff", UINT8_MAX, &onoff)) {
        limit->onoff = static_cast<uint8_t>(onoff);
        url_check_log(0, "\t\tonoff: %d", static_cast<int>(onoff));
    }
    if (number_member(stored, "use_time", UINT32_MAX, &limit->use_time))
        url_check_log(0, "\t\tuse_time: %d", static_cast<int>(limit->use_time));
    const cJSON *app_ids = array_member(stored, "appid");
    int count = cJSON_GetArraySize(app_ids);
    if (count == 0)
        return;
    url_check_log(0, "\t\tappid count: %d", count);
    check_apps(*limit, app_ids, count);
}

// A file with more limits than a device has slots is not applied at all, rather than in part.
void read_limits(device_record *dev, const cJSON *limits)
{
    int num = cJSON_GetArraySize(limits);
    if (num < 1 || num > limits_per_device)
        return;
    url_check_log(0,
                  "[app_ident] load_device_config %s-> ========================checked appid======================", dev->mac);
    url_check_log(0, "[app_ident] load_device_config -> num = %d", num);
    dev->utl_num = static_cast<u32>(num);
    const cJSON *stored = nullptr;
    cJSON_ArrayForEach(stored, limits)
        read_limit(dev, stored);
    pre_push_app_alert(dev);
}

} // namespace

int load_device_config(device_record *dev)
{
    if (!dev)
        return -1;
    cJSON *loaded = nullptr;
    if (load_config(dev->mac, &loaded) != 0) {
        url_check_log(0, "[app_ident] load_device_config -> load_config: %s error 2 ", dev->mac);
        return -1;
    }
    json_tree root(loaded);
    if (!config_is_of(root.get(), dev->mac)) {
        url_check_log(0, "[app_ident] load_device_config -> error 3");
        return -1;
    }
    const cJSON *limits = array_member(root.get(), "data");
    if (!limits) {
        url_check_log(0, "[app_ident] load_device_config -> error 4");
        return -1;
    }
    if (!array_member(root.get(), "appids"))
        fetch_first_catalogue(dev->mac, root.get());
    const cJSON *catalogue = array_member(root.get(), "appids");
    if (!catalogue)
        return -1;
    read_catalogue(dev, catalogue);
    read_limits(dev, limits);
    return 0;
}

namespace {

// What a pass over the catalogue works on: one small class at a time.
struct small_class_update {
    long small_class;
    bool in_file;           // the file has the small class ...
    const cJSON *known_ids; // ... with these apps, null for none
    use_time_limit *limit;  // of its big class; null when the device has none
    cJSON *stored_limit;    // the same in the file
};

cJSON *group_of_small_class(const cJSON *groups, long wanted)
{
    cJSON *group = nullptr;
    cJSON_ArrayForEach(group, groups) {
        long small_class = 0;
        if (service_integer(group, "class_type", &small_class) && small_class == wanted)
            return group;
    }
    return nullptr;
}

bool holds_app(const cJSON *app_ids, u32 wanted)
{
    const cJSON *item = nullptr;
    cJSON_ArrayForEach(item, app_ids) {
        u32 app_id = 0;
        if (read_number(item, UINT32_MAX, &app_id) && app_id == wanted)
            return true;
    }
    return false;
}

void append_app_id(cJSON *stored_limit, u32 app_id)
{
    cJSON *app_ids = array_member(stored_limit, "appid");
    if (!app_ids) {
        app_ids = cJSON_CreateArray();
        if (!put_member(stored_limit, "appid", app_ids))
            return;
    }
    cJSON *number = cJSON_CreateNumber(app_id);
    if (!cJSON_AddItemToArray(app_ids, number))
        cJSON_Delete(number);
}

// True when the app was new: it is limited from now on, in memory and in the tree.
bool add_new_app(const small_class_update &update, u32 app_id)
{
    if (holds_app(update.known_ids, app_id))
        return false;
    if (!update.in_file)
        url_check_log(0, "\t\t======add small class_type: %d", static_cast<int>(update.small_class));
    if (!update.limit || !update.stored_limit)
        return false;
    url_check_log(0, "\t\t======class_type: %d", static_cast<int>(update.small_class));
    // find_entry would stop at a free entry before one that holds the app.
    for (const app_id_st &entry : update.limit->app_ids)
        if (entry.app_id == app_id)
            return false;
    app_id_st *entry = find_entry(*update.limit, app_id);
    if (!entry)
        return false;
    url_check_log(0, "\t\t\tnew appid: %d", static_cast<int>(app_id));
    *entry = {app_id, 1};
    u32 end = static_cast<u32>(entry - update.limit->app_ids) + 1;
    if (update.limit->app_id_num < end)
        update.limit->app_id_num = end; // only counted entries limit anything
    append_app_id(update.stored_limit, app_id);
    return true;
}

bool merge_group(device_record *dev, const cJSON *root, const cJSON *group)
{
    small_class_update update = {};
    u32 class_type = 0;
    if (service_integer(group, "class_type", &update.small_class))
        class_type = big_class(update.small_class);
    if (class_type == 0)
        return false;
    const cJSON *known = group_of_small_class(array_member(root, "appids"), update.small_class);
    update.in_file = known != nullptr;
    update.known_ids = array_member(known, "appid");
    update.limit = limit_of_class(dev, class_type);
    update.stored_limit = stored_limit_of_class(array_member(root, "data"), class_type);
    bool changed = false;
    const cJSON *item = nullptr;
    cJSON_ArrayForEach(item, array_member(group, "appid")) {
        u32 app_id = 0;
        if (is_app_id(item, &app_id) && add_new_app(update, app_id))
            changed = true;
    }
    return changed;
}

} // namespace

int update_new_app_ids(device_record *dev)
{
    cJSON *loaded = nullptr;
    if (!dev || load_config(dev->mac, &loaded) != 0)
        return -1;
    json_tree root(loaded);
    if (!config_is_of(root.get(), dev->mac))
        return -1;
    url_check_log(0,
                  "[app_ident] update_new_app_ids -> [%s] "
                  "=====================================update appid=====================================",
                  dev->mac);
    heap_text answer;
    int ret = 0;
    if (!ask_catalogue(&answer, &ret)) {
        url_check_log(0, "[appident] update_new_app_ids failed -> [%s]get_user_apps.cgi, ret = %d, res = %s", dev->mac, ret,
                      answer ? answer.get() : "");
        return -1;
    }
    cJSON *data = nullptr;
    json_tree catalogue = parse_service_answer(answer.get(), &data);
    if (!catalogue)
        return 0;
    bool changed = false;
    const cJSON *group = nullptr;
    cJSON_ArrayForEach(group, data) {
        if (merge_group(dev, root.get(), group))
            changed = true;
    }
    if (changed)
        store_catalogue(dev->mac, root.get(), catalogue.get(), data);
    return 0;
}
