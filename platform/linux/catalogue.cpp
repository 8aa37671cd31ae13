#include "platform/linux/catalogue.h"

#include "platform/linux/text_builder.h"
#include "platform/linux/watched_file.h"

#include <string.h>
#include <utility>

namespace {

constexpr double app_id_limit = 4294967295.0;

pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
heap_text current;
watched_file file = {"catalogue.json", platform_catalogue_unreadable, false, {}};

bool is_number_text(const cJSON *item)
{
    return cJSON_IsString(item) && *item->valuestring && strspn(item->valuestring, "0123456789") == strlen(item->valuestring);
}

void append_class(text_builder *answer, const char *class_type, const cJSON *ids, bool first)
{
    append_text(answer, "%s{\"class_type\":\"%s\",\"appid\":[", first ? "" : ",", class_type);
    const char *comma = "";
    const cJSON *id = nullptr;
    cJSON_ArrayForEach(id, ids) {
        if (!cJSON_IsNumber(id) || id->valuedouble < 0 || id->valuedouble > app_id_limit)
            continue;
        append_text(answer, "%s%.0f", comma, id->valuedouble);
        comma = ",";
    }
    append_text(answer, "]}");
}

heap_text build_answer(const cJSON *root)
{
    const cJSON *classes = cJSON_GetObjectItemCaseSensitive(root, "data");
    if (!cJSON_IsArray(classes))
        return nullptr;
    text_builder answer = {};
    append_text(&answer, "{\"err_no\":\"0\",\"data\":[");
    bool first = true;
    const cJSON *entry = nullptr;
    cJSON_ArrayForEach(entry, classes) {
        const cJSON *class_type = cJSON_GetObjectItemCaseSensitive(entry, "class_type");
        const cJSON *ids = cJSON_GetObjectItemCaseSensitive(entry, "appid");
        if (!is_number_text(class_type) || !cJSON_IsArray(ids))
            continue;
        append_class(&answer, class_type->valuestring, ids, first);
        first = false;
    }
    append_text(&answer, "]}");
    return take_text(&answer);
}

} // namespace

heap_text catalogue_answer()
{
    mutex_guard held(lock);
    if (json_tree root = read_when_changed(&file)) {
        if (heap_text fresh = build_answer(root.get()))
            current = std::move(fresh);
        else
            count_platform(platform_catalogue_unreadable);
    }
    return heap_text(current ? strdup(current.get()) : nullptr);
}
