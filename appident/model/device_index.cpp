#include "appident/model/device_index.h"

#include "common/counters.h"

#include <stdlib.h>
#include <string.h>

namespace {

// Where a thing with that hash was last found is tried before any scan.
constexpr u32 guesses = 256;
u32 guess_of(u32 hash)
{
    return (hash ^ hash >> 8) % guesses;
}

struct device_hints {
    int axis_slot;                     // last known holder of the time axis
    uint16_t app_ids[apps_per_device]; // an app id has 16 bits
    uint8_t slot_guess[guesses];       // by app id
};
static_assert(apps_per_device <= UINT8_MAX, "a slot fits a guess");

// In list order. What a scan reads stands apart from the rest, so that it stays in a few cache lines.
struct {
    u32 *keys; // a hash of each MAC text
    device_record **records;
    device_hints *hints;
    uint16_t place_guess[guesses]; // by key
    size_t used;
    size_t room;
} table;

u32 key_of(const char *mac_str)
{
    u32 hash = 2166136261u;
    for (; *mac_str; mac_str++)
        hash = (hash ^ static_cast<unsigned char>(*mac_str)) * 16777619u;
    return hash;
}

bool grow()
{
    size_t room = table.room ? table.room * 2 : 16;
    auto *keys = static_cast<u32 *>(realloc(table.keys, room * sizeof(u32)));
    if (keys)
        table.keys = keys;
    auto *records = static_cast<device_record **>(realloc(table.records, room * sizeof(device_record *)));
    if (records)
        table.records = records;
    auto *hints = static_cast<device_hints *>(realloc(table.hints, room * sizeof(device_hints)));
    if (hints)
        table.hints = hints;
    if (!keys || !records || !hints) {
        count(counter_no_memory);
        return false;
    }
    table.room = room;
    return true;
}

bool append(device_record *rec)
{
    if (table.used == table.room && !grow())
        return false;
    device_hints &hints = table.hints[table.used];
    table.records[table.used] = rec;
    hints.axis_slot = 0;
    memset(hints.slot_guess, 0, sizeof(hints.slot_guess));
    for (int i = 0; i < apps_per_device; i++)
        hints.app_ids[i] = static_cast<uint16_t>(rec->apps[i].app_id);
    table.keys[table.used++] = key_of(rec->mac);
    return true;
}

// The table names exactly the records of the list, in its order. Each record is touched only after its neighbour vouched for
// it, so one that somebody else unlinked and freed is noticed and never read.
bool in_step()
{
    const list_head *node = &device_apps_head;
    for (size_t i = 0; i < table.used; i++) {
        const list_head *expected = &table.records[i]->node;
        if (node->next != expected)
            return false;
        node = expected;
    }
    return node->next == &device_apps_head;
}

// False, with the table empty, when there is no memory.
bool read_list()
{
    table.used = 0;
    memset(table.place_guess, 0, sizeof(table.place_guess));
    list_for_each(node, &device_apps_head) {
        if (!append(device_of(node))) {
            table.used = 0;
            return false;
        }
    }
    return true;
}

// Look-ups of one hit ask for the same device several times over.
device_hints *hints_of(const device_record *dev)
{
    static size_t latest = 0;
    if (latest < table.used && table.records[latest] == dev)
        return &table.hints[latest];
    for (size_t i = 0; i < table.used; i++) {
        if (table.records[i] == dev) {
            latest = i;
            return &table.hints[i];
        }
    }
    return nullptr;
}

bool is_at(size_t place, u32 key, const char *mac_str)
{
    return place < table.used && table.keys[place] == key && strcmp(table.records[place]->mac, mac_str) == 0;
}

bool is_in_slot(const device_record *dev, const device_hints *hints, int slot, u32 app_id)
{
    return hints->app_ids[slot] == app_id && dev->apps[slot].app_id == app_id;
}

// The slot as far as the hints know it, -1 when they do not.
int find_hinted_slot(const device_record *dev, device_hints *hints, u32 app_id)
{
    uint8_t &guess = hints->slot_guess[guess_of(app_id)];
    if (is_in_slot(dev, hints, guess, app_id))
        return guess;
    for (int slot = 0; slot < apps_per_device; slot++) {
        if (is_in_slot(dev, hints, slot, app_id)) {
            guess = static_cast<uint8_t>(slot);
            return slot;
        }
    }
    return -1;
}

bool holds_axis(const device_record *dev, int slot)
{
    return dev->apps[slot].app_id != 0 && dev->apps[slot].time_axis_app_state == APP_USING;
}

} // namespace

device_record *tracked_device(const char *mac_str)
{
    list_for_each(node, &device_apps_head) {
        if (strcmp(device_of(node)->mac, mac_str) == 0)
            return device_of(node);
    }
    return nullptr;
}

device_record *look_up_device(const char *mac_str)
{
    if (!in_step() && !read_list())
        return tracked_device(mac_str);
    u32 key = key_of(mac_str);
    uint16_t &guess = table.place_guess[guess_of(key)];
    if (is_at(guess, key, mac_str))
        return table.records[guess];
    for (size_t i = 0; i < table.used; i++) {
        if (is_at(i, key, mac_str)) {
            guess = static_cast<uint16_t>(i);
            return table.records[i];
        }
    }
    // A record may have been given another MAC since its key was taken.
    for (size_t i = 0; i < table.used; i++) {
        if (strcmp(table.records[i]->mac, mac_str) == 0) {
            table.keys[i] = key;
            return table.records[i];
        }
    }
    return nullptr;
}

int find_app_slot(device_record *dev, u32 app_id, int *free_slot)
{
    *free_slot = -1;
    device_hints *hints = hints_of(dev);
    int hinted = hints ? find_hinted_slot(dev, hints, app_id) : -1;
    if (hinted >= 0)
        return hinted;
    for (int i = 0; i < apps_per_device; i++) {
        u32 held = dev->apps[i].app_id;
        if (hints)
            hints->app_ids[i] = static_cast<uint16_t>(held);
        if (held == app_id)
            return i;
        if (held == 0 && *free_slot < 0)
            *free_slot = i;
    }
    return -1;
}

void index_app_slot(device_record *dev, int slot)
{
    if (device_hints *hints = hints_of(dev))
        hints->app_ids[slot] = static_cast<uint16_t>(dev->apps[slot].app_id);
}

int find_time_axis_holder(device_record *dev, int besides)
{
    device_hints *hints = hints_of(dev);
    if (hints && hints->axis_slot != besides && holds_axis(dev, hints->axis_slot))
        return hints->axis_slot;
    for (int i = 0; i < apps_per_device; i++) {
        if (i == besides || !holds_axis(dev, i))
            continue;
        if (hints)
            hints->axis_slot = i;
        return i;
    }
    return -1;
}
