#include "tools/appidentctl/names.h"

#include "tools/appidentctl/device_text.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

bool read_file(const std::string &path, std::string *text)
{
    FILE *file = path == "-" ? stdin : fopen(path.c_str(), "re");
    if (!file)
        return false;
    char piece[4096];
    for (size_t size = 0; (size = fread(piece, 1, sizeof(piece), file)) > 0;)
        text->append(piece, size);
    bool sound = !ferror(file);
    if (file != stdin)
        fclose(file);
    return sound;
}

json_tree read_json(const std::string &path)
{
    std::string text;
    return json_tree(read_file(path, &text) ? cJSON_Parse(text.c_str()) : nullptr);
}

std::string json_text(const cJSON *object, const char *key)
{
    const char *text = cJSON_GetStringValue(cJSON_GetObjectItem(object, key));
    return text ? text : "";
}

double json_number(const cJSON *object, const char *key, double otherwise)
{
    const cJSON *item = cJSON_GetObjectItem(object, key);
    if (cJSON_IsNumber(item))
        return item->valuedouble;
    return cJSON_IsString(item) && item->valuestring[0] ? strtod(item->valuestring, nullptr) : otherwise;
}

std::string app_label(const names &known, u32 app_id)
{
    auto entry = known.apps.find(app_id);
    return std::to_string(app_id) + (entry == known.apps.end() ? "" : " " + entry->second);
}

const known_device *find_device(const names &known, const std::string &device)
{
    for (const known_device &one : known.devices)
        if (one.device == device)
            return &one;
    return nullptr;
}

std::string device_label(const names &known, const std::string &device)
{
    const known_device *entry = find_device(known, device);
    return entry && !entry->name.empty() ? device + "  " + entry->name : device;
}

namespace {

void read_catalogue(const std::string &path, names *known)
{
    json_tree root = read_json(path);
    const cJSON *app = nullptr;
    cJSON_ArrayForEach(app, cJSON_GetObjectItem(root.get(), "names")) {
        if (app->string && cJSON_IsString(app))
            known->apps[static_cast<u32>(strtoul(app->string, nullptr, 10))] = app->valuestring;
    }
}

void read_roster(const std::string &path, names *known)
{
    json_tree root = read_json(path);
    const cJSON *entries = cJSON_GetObjectItem(root.get(), "devices");
    known->roster_found = cJSON_IsArray(entries);
    const cJSON *entry = nullptr;
    cJSON_ArrayForEach(entry, entries) {
        std::string device = device_text(json_text(entry, "mac"));
        if (!device.empty())
            known->devices.push_back({device, json_text(entry, "name"), static_cast<int>(json_number(entry, "role", 0)),
                                      !cJSON_IsFalse(cJSON_GetObjectItem(entry, "online"))});
    }
}

} // namespace

names read_names(const places &where)
{
    names known;
    read_catalogue(where.catalogue, &known);
    read_roster(where.roster, &known);
    return known;
}
