#include "tools/appidentctl/spool.h"

#include "tools/appidentctl/json_file.h"

void read_push_line(const std::string &line, const std::function<void(const spool_push &)> &take)
{
    json_tree root(cJSON_Parse(line.c_str()));
    const cJSON *data = cJSON_GetObjectItem(root.get(), "data");
    if (!data)
        return;
    spool_push push = {static_cast<int>(json_number(root.get(), "code", -1)),
                       static_cast<time_t>(json_number(root.get(), "time", 0)),
                       static_cast<time_t>(json_number(root.get(), "occur_time", 0)),
                       nullptr,
                       "",
                       0};
    auto take_one = [&](const cJSON *one) {
        push.data = one;
        push.mac = json_text(one, push.code ? "endmac" : "mac");
        double app = json_number(one, push.code ? "appid" : "app_id", 0);
        push.app_id = app >= 1 && app <= 0xffff ? static_cast<u32>(app) : 0;
        take(push);
    };
    if (!cJSON_IsArray(data)) {
        take_one(data);
        return;
    }
    const cJSON *one = nullptr;
    cJSON_ArrayForEach(one, data) {
        take_one(one);
    }
}

bool read_spool(const places &where, const std::function<void(const std::string &line)> &take)
{
    bool found = false;
    for (const std::string &path : where.push_spools) {
        std::string text;
        found = read_file(path, &text) || found;
        size_t begin = 0;
        for (size_t end = 0; (end = text.find('\n', begin)) != std::string::npos; begin = end + 1)
            take(text.substr(begin, end - begin));
    }
    return found;
}
