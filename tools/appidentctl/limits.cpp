// limits: shows and stores a device's use-time limits.
#include "tools/appidentctl/commands.h"
#include "tools/appidentctl/daemon_call.h"
#include "tools/appidentctl/exit_codes.h"
#include "tools/appidentctl/limits_text.h"
#include "tools/appidentctl/names.h"
#include "tools/appidentctl/table.h"

#include "common/sec_plg_common.h"

#include <iterator>
#include <stdio.h>
#include <string.h>

namespace {

constexpr u32 change_options = option_bit(option_minutes) | option_bit(option_apps) | option_bit(option_on) |
                               option_bit(option_off) | option_bit(option_others_off);

int read_limits(const call &what, json_answer *stored)
{
    return ask_for_json(what.where, APPIDENT_GET_DEVICE_APP_LIST_USE_TIME, what.device, stored);
}

const cJSON *limits_of(const json_answer &stored)
{
    return cJSON_GetObjectItem(stored.tree.get(), "data");
}

std::string app_list(const names &known, const cJSON *limit)
{
    std::string list;
    const cJSON *app = nullptr;
    cJSON_ArrayForEach(app, cJSON_GetObjectItem(limit, "appid")) {
        list += (list.empty() ? "" : ", ") + app_label(known, static_cast<u32>(app->valuedouble));
    }
    return list.empty() ? "-" : list;
}

void print_limits(const call &what, const json_answer &stored)
{
    if (given(what.line, option_json)) {
        puts(stored.text ? stored.text.get() : "{\"err_no\":\"0\",\"err_msg\":\"success\",\"data\":null}");
        return;
    }
    if (!limits_of(stored)) {
        printf("%s has no limits stored.\n", what.device.c_str());
        return;
    }
    names known = read_names(what.where);
    text_table table = {"rllrl", {{"CLASS", "MEANING", "STATE", "MINUTES", "APPS"}}};
    const cJSON *limit = nullptr;
    cJSON_ArrayForEach(limit, limits_of(stored)) {
        u32 class_type = static_cast<u32>(json_number(limit, "class_type", 0));
        bool meant = class_type >= 1 && class_type <= std::size(limit_classes);
        table.rows.push_back({std::to_string(class_type), meant ? limit_classes[class_type - 1].meaning : "-",
                              json_number(limit, "onoff", 0) != 0 ? "on" : "off",
                              std::to_string(static_cast<u32>(json_number(limit, "use_time", 0))), app_list(known, limit)});
    }
    print_table(table);
}

// Stores the limits and reads them back: the daemon also reports success where it stores nothing.
int store_limits(const call &what, const cJSON *wanted)
{
    json_tree whole = compose_limits(what.device, wanted);
    heap_text text(cJSON_PrintUnformatted(whole.get()));
    client_request request = {};
    request.id = APPIDENT_SET_DEVICE_APP_LIST_USE_TIME;
    request.device = what.device.c_str();
    request.text = text.get();
    client_answer answer = {};
    int code = ask(what.where, request, &answer);
    if (code == exit_refused)
        fputs("appidentctl: the daemon could not store the limits; its log says why\n", stderr);
    if (code != exit_done)
        return code;
    json_answer stored;
    code = read_limits(what, &stored);
    if (code == exit_refused)
        fputs(
            "appidentctl: the daemon took the limits but does not report them: they are in force for a device of role 1 only, "
            "and for one of role 0 nothing is stored\n",
            stderr);
    if (code != exit_done)
        return code;
    print_limits(what, stored);
    if (limits_equal(cJSON_GetObjectItem(whole.get(), "data"), limits_of(stored)))
        return exit_done;
    fputs(
        "appidentctl: what is stored now differs from what was sent; a stored list that is empty, or of more than five limits, "
        "cannot be mended by the daemon\n",
        stderr);
    return exit_refused;
}

// --set: the file holds the limits, as an array or as the "data" of an object.
int store_file(const call &what, const char *path)
{
    json_tree file = read_json(path);
    if (!file)
        return usage_error(what.line, "%s holds no JSON", path);
    const cJSON *data = cJSON_IsArray(file.get()) ? file.get() : cJSON_GetObjectItem(file.get(), "data");
    std::string fault = limits_fault(data);
    std::string device = json_text(file.get(), "device");
    if (fault.empty() && !device.empty() && device != what.device)
        fault = "the limits of another device, " + device;
    if (!fault.empty())
        return usage_error(what.line, "%s: %s", path, fault.c_str());
    return store_limits(what, data);
}

// What the options say about a class.
struct class_change {
    u32 class_type;
    bool on;
    bool has_minutes;
    u32 minutes;
    json_tree apps; // null: as stored
};

int read_app_ids(const call &what, const char *text, json_tree *apps)
{
    apps->reset(cJSON_CreateArray());
    for (const std::string &one : *text ? split(text, ',') : std::vector<std::string>()) {
        u32 app = 0;
        if (!read_number(one.c_str(), 1, 0xffff, &app))
            return usage_error(what.line, "--apps: '%s' is no app id from 1 to 65535", one.c_str());
        cJSON_AddItemToArray(apps->get(), cJSON_CreateNumber(app));
    }
    if (cJSON_GetArraySize(apps->get()) > static_cast<int>(most_apps_of_a_class))
        return usage_error(what.line, "--apps: more than %u apps in a class", most_apps_of_a_class);
    return exit_done;
}

int read_change(const call &what, class_change *change)
{
    const char *class_text = what.line.value[option_class];
    const char *minutes = what.line.value[option_minutes];
    const char *apps = what.line.value[option_apps];
    if (!read_number(class_text, 1, std::size(limit_classes), &change->class_type))
        return usage_error(what.line, "--class %s is none of 1 to 5", class_text);
    if (given(what.line, option_on) && given(what.line, option_off))
        return usage_error(what.line, "--on and --off at once");
    change->on = !given(what.line, option_off);
    change->has_minutes = minutes;
    if (minutes && !read_number(minutes, 0, 0xffffffff, &change->minutes))
        return usage_error(what.line, "--minutes %s is no number of minutes", minutes);
    return apps ? read_app_ids(what, apps, &change->apps) : exit_done;
}

void put(cJSON *object, const char *key, cJSON *value)
{
    if (cJSON_GetObjectItem(object, key))
        cJSON_ReplaceItemInObject(object, key, value);
    else
        cJSON_AddItemToObject(object, key, value);
}

int apply_change(const call &what, class_change *change, cJSON *limit)
{
    put(limit, "onoff", cJSON_CreateNumber(change->on));
    if (change->has_minutes)
        put(limit, "use_time", cJSON_CreateNumber(change->minutes));
    if (change->apps)
        put(limit, "appid", change->apps.release());
    const limit_class &about = limit_classes[change->class_type - 1];
    if (change->on && about.by_minutes && json_number(limit, "use_time", 0) == 0)
        return usage_error(what.line, "a limit that is on needs --minutes");
    if (change->on && about.by_app && cJSON_GetArraySize(cJSON_GetObjectItem(limit, "appid")) == 0)
        fputs("appidentctl: warning: the class has no apps, so nothing counts towards its limit\n", stderr);
    return exit_done;
}

// A refused read means another role than 1, or a file without limits. Only the roster can tell the two apart: with the wrong
// guess, limits that nobody can read back would be overwritten.
int read_kept(const call &what, json_answer *stored)
{
    if (given(what.line, option_others_off))
        return exit_done;
    int code = read_limits(what, stored);
    if (code != exit_refused)
        return code;
    names known = read_names(what.where);
    const known_device *entry = find_device(known, what.device);
    if (entry && entry->role == 1)
        return exit_done;
    if (entry)
        fprintf(stderr, "appidentctl: the device has role %d; limits are for role 1\n", entry->role);
    else
        fputs("appidentctl: the stored limits cannot be read: the device's role is not 1, or it has none yet. "
              "With --others-off the other classes are written off unread\n",
              stderr);
    return exit_refused;
}

int store_class(const call &what)
{
    class_change change = {};
    int code = read_change(what, &change);
    json_answer stored;
    if (code == exit_done)
        code = read_kept(what, &stored);
    if (code != exit_done)
        return code;
    json_tree base = compose_limits(what.device, limits_of(stored));
    cJSON *data = cJSON_GetObjectItem(base.get(), "data");
    code = apply_change(what, &change, find_limit(data, change.class_type));
    return code != exit_done ? code : store_limits(what, data);
}

} // namespace

int run_limits(const call &what)
{
    const char *file = what.line.value[option_set];
    const char *class_text = what.line.value[option_class];
    if (file && class_text)
        return usage_error(what.line, "--set and --class at once");
    if (!class_text && (given_options(what.line) & change_options))
        return usage_error(what.line, "--minutes, --apps, --on, --off and --others-off go with --class");
    if (file)
        return store_file(what, file);
    if (class_text)
        return store_class(what);
    json_answer stored;
    int code = read_limits(what, &stored);
    if (code == exit_refused)
        fputs("appidentctl: refused: limits are reported for a device of role 1 only, and once some are stored\n", stderr);
    if (code == exit_done)
        print_limits(what, stored);
    return code;
}
