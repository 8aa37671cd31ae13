#include "platform/linux/catalogue.h"

#include "platform/linux/client/settings.h"
#include "platform/linux/kept.h"
#include "platform/linux/text_builder.h"
#include "platform/linux/watched_file.h"

#include <string.h>
#include <utility>

namespace {

constexpr double app_id_limit = 4294967295.0;
// More than any catalogue of names needs, and little enough to hold twice.
constexpr int apps_most = 20000;

struct app {
    u32 id;
    u32 class_type;
};

// The apps of one file, in its order.
struct app_list {
    int count;
    heap_ptr<app> apps;
};

pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
watched_file installed_file = {platform_catalogue_unreadable, false, false, {}};
watched_file owners_file = {platform_catalogue_unreadable, false, false, {}};
kept<app_list> kept_installed, kept_owners;
app_list &installed = kept_installed.value, &owners = kept_owners.value;
kept<heap_text> kept_answer;
heap_text &current = kept_answer.value;

bool read_class_type(const cJSON *item, u32 *out)
{
    constexpr size_t digits_most = 9;
    if (!cJSON_IsString(item) || !*item->valuestring || strlen(item->valuestring) > digits_most ||
        strspn(item->valuestring, "0123456789") != strlen(item->valuestring))
        return false;
    *out = static_cast<u32>(strtoul(item->valuestring, nullptr, 10));
    return true;
}

void read_class(const cJSON *entry, app_list *out)
{
    u32 class_type = 0;
    const cJSON *ids = cJSON_GetObjectItemCaseSensitive(entry, "appid");
    if (!read_class_type(cJSON_GetObjectItemCaseSensitive(entry, "class_type"), &class_type) || !cJSON_IsArray(ids))
        return;
    const cJSON *id = nullptr;
    cJSON_ArrayForEach(id, ids) {
        if (out->count < apps_most && cJSON_IsNumber(id) && id->valuedouble >= 0 && id->valuedouble <= app_id_limit)
            out->apps.get()[out->count++] = {static_cast<u32>(id->valuedouble), class_type};
    }
}

bool read_apps(const cJSON *root, app_list *out)
{
    const cJSON *classes = cJSON_GetObjectItemCaseSensitive(root, "data");
    if (!cJSON_IsArray(classes))
        return false;
    int room = 1;
    const cJSON *entry = nullptr;
    cJSON_ArrayForEach(entry, classes) {
        room += cJSON_GetArraySize(cJSON_GetObjectItemCaseSensitive(entry, "appid"));
    }
    out->count = 0;
    out->apps.reset(static_cast<app *>(calloc(static_cast<size_t>(room), sizeof(app))));
    if (!out->apps)
        return false;
    cJSON_ArrayForEach(entry, classes) {
        read_class(entry, out);
    }
    return true;
}

// Whether the list changed.
bool bring_up_to_date(watched_file *file, const char *path, app_list *list)
{
    json_tree root;
    file_news news = look_at_file(file, path, &root);
    if (news == file_gone)
        return std::exchange(*list, {}).count > 0;
    app_list fresh = {};
    if (news != file_fresh)
        return false;
    if (!read_apps(root.get(), &fresh)) {
        count_platform(platform_catalogue_unreadable);
        return false;
    }
    *list = std::move(fresh);
    return true;
}

bool lists(const app_list &list, u32 id)
{
    for (int i = 0; i < list.count; ++i)
        if (list.apps.get()[i].id == id)
            return true;
    return false;
}

// Both lists as one, the owner's word before the installed one's; null without memory.
app_list merge()
{
    app_list merged = {};
    merged.apps.reset(static_cast<app *>(calloc(static_cast<size_t>(installed.count + owners.count) + 1, sizeof(app))));
    if (!merged.apps)
        return merged;
    for (int i = 0; i < installed.count; ++i)
        if (!lists(owners, installed.apps.get()[i].id))
            merged.apps.get()[merged.count++] = installed.apps.get()[i];
    for (int i = 0; i < owners.count; ++i)
        merged.apps.get()[merged.count++] = owners.apps.get()[i];
    return merged;
}

// The class of `first` and all its apps, which are used up: their class becomes `taken`.
constexpr u32 taken = 0xFFFFFFFF;

void append_class(text_builder *answer, app_list *merged, int first)
{
    u32 class_type = merged->apps.get()[first].class_type;
    append_text(answer, "%s{\"class_type\":\"%u\",\"appid\":[", first == 0 ? "" : ",", class_type);
    const char *comma = "";
    for (int i = first; i < merged->count; ++i) {
        app &one = merged->apps.get()[i];
        if (one.class_type != class_type)
            continue;
        append_text(answer, "%s%u", comma, one.id);
        comma = ",";
        one.class_type = taken;
    }
    append_text(answer, "]}");
}

heap_text build_answer()
{
    app_list merged = merge();
    if (!merged.apps)
        return nullptr;
    text_builder answer = {};
    append_text(&answer, "{\"err_no\":\"0\",\"data\":[");
    for (int i = 0; i < merged.count; ++i)
        if (merged.apps.get()[i].class_type != taken)
            append_class(&answer, &merged, i);
    append_text(&answer, "]}");
    return take_text(&answer);
}

} // namespace

heap_text catalogue_answer()
{
    char owners_path[state_path_size];
    state_path(owners_path, "catalogue.json");
    mutex_guard held(lock);
    bool changed = bring_up_to_date(&installed_file, settings().catalogue, &installed);
    changed |= bring_up_to_date(&owners_file, owners_path, &owners);
    // Without any app the last catalogue stays: an answer without apps would empty the devices' settings of theirs.
    if (changed && installed.count + owners.count > 0)
        if (heap_text fresh = build_answer())
            current = std::move(fresh);
    return heap_text(current ? strdup(current.get()) : nullptr);
}
