#include "simulator/world/household_files.h"

#include "simulator/world/private_network.h"

#include "common/guards.h"

#include <cjson/cJSON.h>
#include <errno.h>
#include <filesystem>
#include <fstream>
#include <map>
#include <stdio.h>
#include <string.h>

namespace {

bool write_whole(const std::string &path, const cJSON *tree)
{
    heap_text text(cJSON_Print(tree));
    std::string beside = path + ".new";
    std::ofstream file(beside);
    file << (text ? text.get() : "") << std::flush;
    if (text && file && rename(beside.c_str(), path.c_str()) == 0)
        return true;
    fprintf(stderr, "%s: cannot be written: %s\n", path.c_str(), strerror(errno));
    return false;
}

} // namespace

bool write_settings()
{
    std::error_code failure;
    std::filesystem::create_directories(state_directory, failure);
    std::filesystem::create_directories(runtime_directory, failure);
    json_tree root(cJSON_CreateObject());
    cJSON_AddStringToObject(root.get(), "lan_interface", lan_interface_name);
    cJSON_AddStringToObject(root.get(), "state_dir", state_directory);
    cJSON_AddStringToObject(root.get(), "runtime_dir", runtime_directory);
    // Only the household's own apps, also where the package is installed.
    cJSON_AddStringToObject(root.get(), "catalogue", "/tmp/household/none.json");
    return write_whole(settings_path, root.get());
}

bool write_roster(const std::vector<device_entry> &devices)
{
    json_tree root(cJSON_CreateObject());
    cJSON *array = cJSON_AddArrayToObject(root.get(), "devices");
    for (const device_entry &device : devices) {
        cJSON *entry = cJSON_CreateObject();
        cJSON_AddStringToObject(entry, "mac", device.mac.c_str());
        cJSON_AddNumberToObject(entry, "role", device.role);
        cJSON_AddStringToObject(entry, "name", device.name.c_str());
        cJSON_AddNumberToObject(entry, "group", device.group);
        cJSON_AddBoolToObject(entry, "online", device.online);
        cJSON_AddItemToArray(array, entry);
    }
    return write_whole(std::string(state_directory) + "/roster.json", root.get());
}

bool write_catalogue(const std::vector<app_entry> &every, moment now)
{
    json_tree root(cJSON_CreateObject());
    cJSON *data = cJSON_AddArrayToObject(root.get(), "data");
    cJSON *names = cJSON_AddObjectToObject(root.get(), "names");
    std::map<u32, cJSON *> classes;
    for (const app_entry &app : every) {
        if (app.known_from > now)
            continue;
        cJSON *&apps = classes[app.small_class];
        if (!apps) {
            cJSON *entry = cJSON_CreateObject();
            cJSON_AddStringToObject(entry, "class_type", std::to_string(app.small_class).c_str());
            apps = cJSON_AddArrayToObject(entry, "appid");
            cJSON_AddItemToArray(data, entry);
        }
        cJSON_AddItemToArray(apps, cJSON_CreateNumber(app.id));
        cJSON_AddStringToObject(names, std::to_string(app.id).c_str(), app.name.c_str());
    }
    return write_whole(std::string(state_directory) + "/catalogue.json", root.get());
}
