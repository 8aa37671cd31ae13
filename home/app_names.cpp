#include "home/app_names.h"

#include "home/push_line.h"
#include "platform/linux/client/json_text.h"

#include <stdlib.h>

namespace {

constexpr size_t name_most = 96;
constexpr double most_app = 65535;

void read_classes(app_names *known, const cJSON *data)
{
    const cJSON *group = nullptr, *app = nullptr;
    cJSON_ArrayForEach(group, data) {
        int64_t number = 0;
        if (!read_count(group, "class_type", 255, &number))
            continue;
        cJSON_ArrayForEach(app, cJSON_GetObjectItemCaseSensitive(group, "appid")) {
            if (cJSON_IsNumber(app) && app->valuedouble > 0 && app->valuedouble <= most_app)
                known->classes[static_cast<u32>(app->valuedouble)] = static_cast<int>(number);
        }
    }
}

int64_t file_changed(const std::string &path)
{
    constexpr int64_t second = 1000000000;
    struct stat about;
    return stat(path.c_str(), &about) == 0 ? about.st_mtim.tv_sec * second + about.st_mtim.tv_nsec : 0;
}

bool read_catalogue(app_names *known, const std::string &path)
{
    text_file file = read_text_file(path.c_str(), json_text_limit);
    json_tree root(file.text ? parse_json_text(file.text.get()) : nullptr);
    if (!cJSON_IsObject(root.get()))
        return false;
    const cJSON *app = nullptr, *names = cJSON_GetObjectItemCaseSensitive(root.get(), "names");
    cJSON_ArrayForEach(app, names) {
        std::string name = app->string ? read_words(names, app->string, name_most) : "";
        if (!name.empty())
            known->names[static_cast<u32>(strtoul(app->string, nullptr, 10))] = name;
    }
    read_classes(known, cJSON_GetObjectItemCaseSensitive(root.get(), "data"));
    return true;
}

} // namespace

void refresh_app_names(app_names *known, const std::vector<std::string> &paths)
{
    app_names fresh;
    for (const std::string &path : paths)
        fresh.changed.push_back(file_changed(path));
    if (fresh.changed == known->changed)
        return;
    for (size_t i = 0; i < paths.size(); ++i)
        if (fresh.changed[i] != 0 && !read_catalogue(&fresh, paths[i]))
            return;
    *known = std::move(fresh);
}

std::string app_name(const app_names &known, u32 app)
{
    auto entry = known.names.find(app);
    return entry == known.names.end() ? std::to_string(app) : entry->second;
}

int app_class(const app_names &known, u32 app)
{
    auto entry = known.classes.find(app);
    return entry == known.classes.end() ? 0 : entry->second;
}
