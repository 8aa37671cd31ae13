#include "platform/linux/roster.h"

#include "common/mac_text.h"
#include "platform/linux/client/settings.h"
#include "platform/linux/kept.h"
#include "platform/linux/watched_file.h"

#include <dirent.h>
#include <limits.h>
#include <string.h>
#include <utility>

namespace {

struct roster {
    bool read;
    int home;
    int count;
    heap_ptr<roster_device> devices; // in the order of MACs
};

pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
kept<roster> kept_roster;
roster &current = kept_roster.value;
u32 current_generation = 0;
bool expected = false;
watched_file file = {platform_roster_unreadable, false, false, {}};

int integer(const cJSON *object, const char *key, int otherwise)
{
    const cJSON *item = cJSON_GetObjectItemCaseSensitive(object, key);
    bool fits = cJSON_IsNumber(item) && item->valuedouble >= INT_MIN && item->valuedouble <= INT_MAX;
    return fits ? static_cast<int>(item->valuedouble) : otherwise;
}

int role_of(const cJSON *entry)
{
    const cJSON *item = cJSON_GetObjectItemCaseSensitive(entry, "role");
    int role = integer(entry, "role", role_unclear);
    return !item ? role_none : role >= 0 ? role : role_unclear;
}

roster_presence presence_of(const cJSON *entry)
{
    const cJSON *item = cJSON_GetObjectItemCaseSensitive(entry, "online");
    return cJSON_IsTrue(item) ? presence_on : cJSON_IsFalse(item) ? presence_off : presence_observed;
}

bool read_device(const cJSON *entry, roster_device *out)
{
    *out = {};
    const cJSON *mac = cJSON_GetObjectItemCaseSensitive(entry, "mac");
    if (!cJSON_IsString(mac) || !read_mac_text(mac->valuestring, out->mac))
        return false;
    out->role = role_of(entry);
    out->group = integer(entry, "group", -1);
    out->presence = presence_of(entry);
    const cJSON *name = cJSON_GetObjectItemCaseSensitive(entry, "name");
    if (cJSON_IsString(name))
        copy_device_name(name->valuestring, out->name);
    return true;
}

// The place of the MAC, or where it belongs.
int place_of(const roster &in, const unsigned char *mac, bool *found)
{
    int low = 0, high = in.count;
    *found = false;
    while (low < high) {
        int middle = (low + high) / 2;
        int order = memcmp(in.devices.get()[middle].mac, mac, sizeof(roster_device::mac));
        *found = *found || order == 0;
        if (order < 0)
            low = middle + 1;
        else
            high = middle;
    }
    return low;
}

bool add_device(roster *to, const roster_device &device)
{
    bool found = false;
    int place = place_of(*to, device.mac, &found);
    if (found || to->count == roster_most)
        return false;
    roster_device *at = to->devices.get() + place;
    memmove(at + 1, at, static_cast<size_t>(to->count - place) * sizeof(*at));
    *at = device;
    ++to->count;
    return true;
}

bool read_roster(const cJSON *root, roster *out)
{
    const cJSON *entries = cJSON_GetObjectItemCaseSensitive(root, "devices");
    int room = cJSON_GetArraySize(entries) < roster_most ? cJSON_GetArraySize(entries) : roster_most;
    out->devices.reset(static_cast<roster_device *>(calloc(static_cast<size_t>(room) + 1, sizeof(roster_device))));
    if (!cJSON_IsArray(entries) || !out->devices)
        return false;
    const cJSON *entry = nullptr;
    cJSON_ArrayForEach(entry, entries) {
        roster_device device;
        if (!read_device(entry, &device) || !add_device(out, device) || device.role == role_unclear)
            count_platform(platform_roster_entries_refused);
    }
    out->home = integer(root, "home", 0);
    return out->read = true;
}

// Whether a device's settings lie there: they are only ever stored for a device with a role, which somebody gave it.
bool settings_are_stored()
{
    char path[state_path_size];
    state_path(path, "config");
    DIR *directory = opendir(path);
    bool found = false;
    while (const dirent *entry = directory && !found ? readdir(directory) : nullptr)
        found = strstr(entry->d_name, ".config") != nullptr;
    if (directory)
        closedir(directory);
    return found;
}

void bring_up_to_date()
{
    char path[state_path_size];
    state_path(path, "roster.json");
    json_tree root;
    file_news news = look_at_file(&file, path, &root);
    if (news == file_unchanged)
        return;
    ++current_generation;
    roster fresh = {};
    if (news == file_fresh && read_roster(root.get(), &fresh))
        current = std::move(fresh);
    else if (news == file_fresh)
        count_platform(platform_roster_unreadable);
    if (news != file_gone || (settings().default_role == 0 && settings_are_stored()))
        expected = true;
}

} // namespace

void roster_expect()
{
    mutex_guard held(lock);
    expected = true;
}

roster_state roster_look(u32 *generation)
{
    mutex_guard held(lock);
    bring_up_to_date();
    if (generation)
        *generation = current_generation;
    return current.read ? roster_readable : expected ? roster_unavailable : roster_never_made;
}

bool roster_find(const unsigned char *mac, roster_device *out)
{
    mutex_guard held(lock);
    bool found = false;
    int place = place_of(current, mac, &found);
    if (found)
        *out = current.devices.get()[place];
    return found;
}

bool roster_next(const unsigned char *after, roster_device *out)
{
    mutex_guard held(lock);
    bool found = false;
    int place = after ? place_of(current, after, &found) : 0;
    place += found ? 1 : 0;
    if (place >= current.count)
        return false;
    *out = current.devices.get()[place];
    return true;
}

int roster_home()
{
    mutex_guard held(lock);
    return current.home;
}
