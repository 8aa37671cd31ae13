#include "platform/linux/roster.h"

#include "common/mac_text.h"
#include "platform/linux/device_answer.h"
#include "platform/linux/platform_counters.h"
#include "platform/linux/watched_file.h"

#include <limits.h>
#include <stdio.h>
#include <string.h>
#include <utility>

namespace {

constexpr int most_devices = 1024;

struct roster {
    bool read;
    int home;
    int count;
    heap_ptr<roster_device> devices; // in the order of MACs
    heap_text online, offline;       // whole answers, in the order of the file
};

pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
roster current;
watched_file file = {"roster.json", platform_roster_unreadable, false, {}};

int integer(const cJSON *object, const char *key, int otherwise)
{
    const cJSON *item = cJSON_GetObjectItemCaseSensitive(object, key);
    bool fits = cJSON_IsNumber(item) && item->valuedouble >= INT_MIN && item->valuedouble <= INT_MAX;
    return fits ? static_cast<int>(item->valuedouble) : otherwise;
}

// Cut between characters, not within one.
void copy_name(const char *from, char (&out)[33])
{
    size_t length = strnlen(from, sizeof(out));
    if (length == sizeof(out))
        for (--length; length > 0 && (from[length] & 0xC0) == 0x80;)
            --length;
    memcpy(out, from, length);
    out[length] = 0;
}

bool read_device(const cJSON *entry, roster_device *out)
{
    *out = {};
    const cJSON *mac = cJSON_GetObjectItemCaseSensitive(entry, "mac");
    if (!cJSON_IsString(mac) || !read_mac_text(mac->valuestring, out->mac))
        return false;
    out->role = integer(entry, "role", 0);
    out->group = integer(entry, "group", -1);
    out->online = !cJSON_IsFalse(cJSON_GetObjectItemCaseSensitive(entry, "online"));
    const cJSON *name = cJSON_GetObjectItemCaseSensitive(entry, "name");
    if (cJSON_IsString(name))
        copy_name(name->valuestring, out->name);
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
    if (found || to->count == most_devices)
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
    int room = cJSON_GetArraySize(entries) < most_devices ? cJSON_GetArraySize(entries) : most_devices;
    out->devices.reset(static_cast<roster_device *>(calloc(static_cast<size_t>(room) + 1, sizeof(roster_device))));
    if (!cJSON_IsArray(entries) || !out->devices)
        return false;
    device_answer online = begin_answer(), offline = begin_answer();
    const cJSON *entry = nullptr;
    cJSON_ArrayForEach(entry, entries) {
        roster_device device;
        if (read_device(entry, &device) && add_device(out, device))
            add_to_answer(device.online ? &online : &offline, device.mac, device.role);
        else
            count_platform(platform_roster_entries_refused);
    }
    out->home = integer(root, "home", 0);
    out->online = end_answer(&online);
    out->offline = end_answer(&offline);
    out->read = out->online && out->offline;
    return out->read;
}

void bring_up_to_date()
{
    json_tree root = read_when_changed(&file);
    if (!root)
        return;
    roster fresh = {};
    if (read_roster(root.get(), &fresh))
        current = std::move(fresh);
    else
        count_platform(platform_roster_unreadable);
}

} // namespace

roster_look roster_find(const unsigned char *mac, roster_device *out, int *home)
{
    mutex_guard held(lock);
    bring_up_to_date();
    if (!current.read)
        return roster_unavailable;
    bool found = false;
    int place = place_of(current, mac, &found);
    if (!found)
        return roster_unknown_device;
    *out = current.devices.get()[place];
    *home = current.home;
    return roster_known_device;
}

heap_text roster_list(bool online)
{
    mutex_guard held(lock);
    bring_up_to_date();
    if (!current.read)
        return nullptr;
    return heap_text(strdup(online ? current.online.get() : current.offline.get()));
}
