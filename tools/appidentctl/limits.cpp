// limits: shows and stores a device's use-time limits.
#include "tools/appidentctl/commands.h"
#include "tools/appidentctl/daemon_call.h"
#include "tools/appidentctl/exit_codes.h"
#include "tools/appidentctl/json_file.h"
#include "tools/appidentctl/operand.h"
#include "tools/appidentctl/table.h"

#include "common/sec_plg_common.h"
#include "platform/linux/client/limits_text.h"

#include <iterator>
#include <stdio.h>
#include <string.h>

namespace {

constexpr u32 most_minutes = 24 * 60;
constexpr option_id change_options[] = {option_minutes, option_apps, option_on, option_off, option_others_off};

// What the command is about.
struct subject {
    const call &what;
    household known;
    std::string mac;
};

int read_limits(const subject &about, json_answer *stored)
{
    return ask_for_json(about.what.where, APPIDENT_GET_DEVICE_APP_LIST_USE_TIME, about.mac, stored);
}

const cJSON *limits_of(const json_answer &stored)
{
    return cJSON_GetObjectItem(stored.tree.get(), "data");
}

std::string app_list(const household &known, const cJSON *limit)
{
    std::string list;
    const cJSON *app = nullptr;
    cJSON_ArrayForEach(app, cJSON_GetObjectItem(limit, "appid")) {
        list += (list.empty() ? "" : ", ") + app_label(known, static_cast<u32>(app->valuedouble));
    }
    return list.empty() ? "-" : list;
}

void print_as_json(const subject &about, const json_answer &stored)
{
    json_tree root(cJSON_CreateObject());
    cJSON_AddStringToObject(root.get(), "mac", about.mac.c_str());
    cJSON_AddStringToObject(root.get(), "device", device_name(about.known, about.mac).c_str());
    cJSON *list = cJSON_AddArrayToObject(root.get(), "limits");
    const cJSON *limit = nullptr;
    cJSON_ArrayForEach(limit, limits_of(stored)) {
        u32 class_type = static_cast<u32>(json_number(limit, "class_type", 0));
        cJSON *entry = cJSON_CreateObject();
        cJSON_AddNumberToObject(entry, "class_type", class_type);
        cJSON_AddStringToObject(entry, "class", class_name(class_type));
        cJSON_AddBoolToObject(entry, "on", json_number(limit, "onoff", 0) != 0);
        cJSON_AddNumberToObject(entry, "minutes", json_number(limit, "use_time", 0));
        cJSON *apps = cJSON_AddArrayToObject(entry, "apps");
        const cJSON *app = nullptr;
        cJSON_ArrayForEach(app, cJSON_GetObjectItem(limit, "appid")) {
            cJSON *one = cJSON_CreateObject();
            cJSON_AddNumberToObject(one, "app_id", app->valuedouble);
            cJSON_AddStringToObject(one, "app", app_name(about.known, static_cast<u32>(app->valuedouble)).c_str());
            cJSON_AddItemToArray(apps, one);
        }
        cJSON_AddItemToArray(list, entry);
    }
    print_json(root.get());
}

void print_limits(const subject &about, const json_answer &stored)
{
    if (given(about.what.line, option_json)) {
        print_as_json(about, stored);
        return;
    }
    if (!limits_of(stored)) {
        printf("%s has no limits stored.\n", printable(device_name(about.known, about.mac)).c_str());
        return;
    }
    text_table table = {
        {{"CLASS", true, false, 0, true}, {"NAME", false, true}, {"STATE"}, {"MINUTES", true}, {"APPS", false, true}}, {}};
    const cJSON *limit = nullptr;
    cJSON_ArrayForEach(limit, limits_of(stored)) {
        u32 class_type = static_cast<u32>(json_number(limit, "class_type", 0));
        table.rows.push_back(
            {std::to_string(class_type), class_name(class_type), json_number(limit, "onoff", 0) != 0 ? "on" : "off",
             std::to_string(static_cast<u32>(json_number(limit, "use_time", 0))), app_list(about.known, limit)});
    }
    print_table(table);
}

// Stores the limits and reads them back: the daemon also reports success where it stores nothing.
int store_limits(const subject &about, const cJSON *wanted)
{
    json_tree whole = compose_limits(about.mac, wanted);
    heap_text text(cJSON_PrintUnformatted(whole.get()));
    client_request request = {};
    request.id = APPIDENT_SET_DEVICE_APP_LIST_USE_TIME;
    request.device = about.mac.c_str();
    request.text = text.get();
    client_answer answer = {};
    int code = ask(about.what.where, request, &answer);
    if (code == exit_refused)
        fputs("appidentctl: the daemon could not store the limits; its log says why\n", stderr);
    if (code != exit_done)
        return code;
    json_answer stored;
    code = read_limits(about, &stored);
    if (code == exit_refused)
        fputs(
            "appidentctl: the daemon took the limits but does not report them: they are in force for a device of role 1 only, "
            "and for one of role 0 nothing is stored\n",
            stderr);
    if (code != exit_done)
        return code;
    print_limits(about, stored);
    if (limits_equal(cJSON_GetObjectItem(whole.get(), "data"), limits_of(stored)))
        return exit_done;
    fputs(
        "appidentctl: what is stored now differs from what was sent; a stored list that is empty, or of more than five limits, "
        "cannot be mended by the daemon\n",
        stderr);
    return exit_refused;
}

// --set: the file holds the limits, as an array or as the "data" of an object.
int store_file(const subject &about, const char *path)
{
    json_tree file = read_json(path);
    if (!file)
        return usage_error(about.what.line, "%s holds no JSON", path);
    const cJSON *data = cJSON_IsArray(file.get()) ? file.get() : cJSON_GetObjectItem(file.get(), "data");
    std::string fault = limits_fault(data);
    std::string device = json_text(file.get(), "device");
    if (fault.empty() && !device.empty() && device != about.mac)
        fault = "the limits of another device, " + device;
    if (!fault.empty())
        return usage_error(about.what.line, "%s: %s", path, fault.c_str());
    return store_limits(about, data);
}

// What the options say about a class.
struct class_change {
    u32 class_type;
    bool on;
    bool has_minutes;
    u32 minutes;
    json_tree apps; // null: as stored
};

bool read_apps(const subject &about, u32 class_type, const char *text, json_tree *apps)
{
    apps->reset(cJSON_CreateArray());
    if (std::string(text) == "all") {
        for (const auto &[id, app] : about.known.apps)
            if (limit_class_of(app.small_class) == class_type)
                cJSON_AddItemToArray(apps->get(), cJSON_CreateNumber(id));
    } else {
        for (const std::string &one : *text ? split(text, ',') : std::vector<std::string>()) {
            u32 app = app_from_words(about.what.line, about.known, one);
            if (!app)
                return false;
            cJSON_AddItemToArray(apps->get(), cJSON_CreateNumber(app));
        }
    }
    if (cJSON_GetArraySize(apps->get()) <= static_cast<int>(most_apps_of_a_class))
        return true;
    usage_error(about.what.line, "--apps: more than %u apps in a class", most_apps_of_a_class);
    return false;
}

bool read_change(const subject &about, class_change *change)
{
    const command_line &line = about.what.line;
    const char *minutes = line.value[option_minutes], *apps = line.value[option_apps];
    change->class_type = class_from_words(line, line.value[option_class]);
    if (!change->class_type)
        return false;
    if (given(line, option_on) && given(line, option_off)) {
        usage_error(line, "--on and --off at once");
        return false;
    }
    change->on = !given(line, option_off);
    change->has_minutes = minutes;
    if (minutes && !read_number(minutes, 0, most_minutes, &change->minutes)) {
        usage_error(line, "--minutes %s is no number of minutes up to %u", minutes, most_minutes);
        return false;
    }
    return !apps || read_apps(about, change->class_type, apps, &change->apps);
}

void put(cJSON *object, const char *key, cJSON *value)
{
    if (cJSON_GetObjectItem(object, key))
        cJSON_ReplaceItemInObject(object, key, value);
    else
        cJSON_AddItemToObject(object, key, value);
}

int apply_change(const subject &about, class_change *change, cJSON *limit)
{
    put(limit, "onoff", cJSON_CreateNumber(change->on));
    if (change->has_minutes)
        put(limit, "use_time", cJSON_CreateNumber(change->minutes));
    if (change->apps)
        put(limit, "appid", change->apps.release());
    const limit_class &kind = limit_classes[change->class_type - 1];
    if (change->on && kind.by_minutes && json_number(limit, "use_time", 0) == 0)
        return usage_error(about.what.line, "a limit that is on needs --minutes");
    if (change->on && kind.by_app && cJSON_GetArraySize(cJSON_GetObjectItem(limit, "appid")) == 0)
        fputs("appidentctl: warning: the class has no apps, so nothing counts towards its limit\n", stderr);
    return exit_done;
}

// A refused read means another role than 1, or a file without limits. Only the roster can tell the two apart: with the wrong
// guess, limits that nobody can read back would be overwritten.
int read_kept(const subject &about, json_answer *stored)
{
    if (given(about.what.line, option_others_off))
        return exit_done;
    int code = read_limits(about, stored);
    if (code != exit_refused)
        return code;
    const known_device *entry = find_device(about.known, about.mac);
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

int store_class(const subject &about)
{
    class_change change = {};
    if (!read_change(about, &change))
        return exit_usage;
    json_answer stored;
    int code = read_kept(about, &stored);
    if (code != exit_done)
        return code;
    json_tree base = compose_limits(about.mac, limits_of(stored));
    cJSON *data = cJSON_GetObjectItem(base.get(), "data");
    code = apply_change(about, &change, find_limit(data, change.class_type));
    return code != exit_done ? code : store_limits(about, data);
}

} // namespace

int run_limits(const call &what)
{
    const char *file = what.line.value[option_set_file];
    bool change = given(what.line, option_class);
    if (file && change)
        return usage_error(what.line, "--set and --class at once");
    for (option_id one : change_options)
        if (!change && given(what.line, one))
            return usage_error(what.line, "--%s goes with --class", about_option(one).name);
    subject about = {what, read_household(what.where), ""};
    about.mac = operand_device(what, about.known);
    if (about.mac.empty())
        return exit_usage;
    if (file)
        return store_file(about, file);
    if (change)
        return store_class(about);
    json_answer stored;
    int code = read_limits(about, &stored);
    if (code == exit_refused)
        fputs("appidentctl: refused: limits are reported for a device of role 1 only, and once some are stored\n", stderr);
    if (code == exit_done)
        print_limits(about, stored);
    return code;
}
