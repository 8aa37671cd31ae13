#include "home/home_settings.h"

#include "platform/linux/client/json_text.h"

#include <math.h>
#include <stdio.h>

namespace {

constexpr size_t settings_limit = 64 * 1024;
constexpr size_t path_most = 200;

struct text_setting {
    const char *key;
    std::string home_settings::*value;
};
constexpr text_setting texts[] = {
    {"database", &home_settings::database},
    {"runtime_dir", &home_settings::runtime_dir},
    {"request_socket", &home_settings::request_socket},
    {"installed_catalogue", &home_settings::installed_catalogue},
    {"catalogue", &home_settings::catalogue},
    {"listen", &home_settings::listen},
};

struct number_setting {
    const char *key;
    int64_t home_settings::*value;
    int64_t least, most;
};
constexpr number_setting numbers[] = {
    {"port", &home_settings::port, 1, 65535},
    {"commit_interval", &home_settings::commit_interval, 1, 3600},
    {"session_days", &home_settings::session_days, 1, 3660},
    {"day_years", &home_settings::day_years, 1, 100},
};

} // namespace

bool read_home_settings(const char *path, home_settings *settings)
{
    text_file file = read_text_file(path, settings_limit);
    if (file.outcome == file_missing)
        return true;
    settings->tree.reset(file.text ? parse_json_text(file.text.get(), settings_limit) : nullptr);
    if (!cJSON_IsObject(settings->tree.get())) {
        fprintf(stderr, "appident-home: %s cannot be read or is no JSON object\n", path);
        return false;
    }
    for (const text_setting &one : texts) {
        const cJSON *item = cJSON_GetObjectItemCaseSensitive(settings->tree.get(), one.key);
        const char *text = cJSON_GetStringValue(item);
        if (text && std::string(text).size() <= path_most)
            settings->*one.value = text;
        else if (item)
            fprintf(stderr, "appident-home: %s: \"%s\" must be a text of at most %zu bytes\n", path, one.key, path_most);
    }
    for (const number_setting &one : numbers) {
        const cJSON *item = cJSON_GetObjectItemCaseSensitive(settings->tree.get(), one.key);
        double value = cJSON_IsNumber(item) ? item->valuedouble : -1;
        if (value >= static_cast<double>(one.least) && value <= static_cast<double>(one.most) && value == floor(value))
            settings->*one.value = static_cast<int64_t>(value);
        else if (item)
            fprintf(stderr, "appident-home: %s: \"%s\" must be a number of %lld to %lld\n", path, one.key,
                    static_cast<long long>(one.least), static_cast<long long>(one.most));
    }
    return true;
}
