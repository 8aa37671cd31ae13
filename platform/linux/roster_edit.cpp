#include "platform/linux/roster_edit.h"

#include "common/mac_text.h"
#include "platform/linux/client/json_text.h"
#include "platform/linux/client/settings.h"
#include "platform/linux/directories.h"
#include "platform/linux/replace_file.h"
#include "platform/linux/roster.h"

#include <string.h>

namespace {

cJSON *entry_of(cJSON *devices, const unsigned char *mac)
{
    cJSON *entry = nullptr;
    cJSON_ArrayForEach(entry, devices) {
        unsigned char here[6];
        const char *text = cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(entry, "mac"));
        if (text && read_mac_text(text, here) && memcmp(here, mac, sizeof(here)) == 0)
            return entry;
    }
    return nullptr;
}

cJSON *add_entry(cJSON *devices, const unsigned char *mac)
{
    char text[mac_text_size];
    write_mac_text(mac, text);
    cJSON *entry = cJSON_GetArraySize(devices) < roster_most ? cJSON_CreateObject() : nullptr;
    if (!entry)
        return nullptr;
    if (!cJSON_AddStringToObject(entry, "mac", text) || !cJSON_AddItemToArray(devices, entry)) {
        cJSON_Delete(entry);
        return nullptr;
    }
    return entry;
}

// In its place where the key is there already. Takes the value over.
bool set_key(cJSON *entry, const char *key, cJSON *value)
{
    if (!value)
        return false;
    return cJSON_GetObjectItemCaseSensitive(entry, key) ? cJSON_ReplaceItemInObjectCaseSensitive(entry, key, value)
                                                        : cJSON_AddItemToObject(entry, key, value);
}

bool apply(cJSON *root, const roster_change &change)
{
    cJSON *devices = cJSON_GetObjectItemCaseSensitive(root, "devices");
    if (!cJSON_IsArray(devices))
        return false;
    cJSON *entry = entry_of(devices, change.mac);
    if (!entry)
        entry = add_entry(devices, change.mac);
    if (!entry)
        return false;
    if (change.has_role && !set_key(entry, "role", cJSON_CreateNumber(change.role)))
        return false;
    if (!change.has_name)
        return true;
    if (*change.name)
        return set_key(entry, "name", cJSON_CreateString(change.name));
    cJSON_DeleteItemFromObjectCaseSensitive(entry, "name");
    return true;
}

json_tree read_whole(const char *path)
{
    text_file file = read_text_file(path, json_text_limit);
    // A new one beside settings of devices that the lost one named would give those the default role.
    if (file.outcome == file_missing)
        return json_tree(roster_look() == roster_never_made ? parse_json_text("{\"devices\":[]}") : nullptr);
    return json_tree(file.text ? parse_json_text(file.text.get()) : nullptr);
}

} // namespace

bool change_roster(const roster_change &change)
{
    char path[state_path_size];
    state_path(path, "roster.json");
    json_tree root = read_whole(path);
    if (!root || !apply(root.get(), change))
        return false;
    heap_text text(cJSON_Print(root.get()));
    return text && strlen(text.get()) < json_text_limit && make_directory(settings().state_dir, 0755) &&
           replace_file(path, text.get());
}
