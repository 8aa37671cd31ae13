#include "appident/device_index.h"

#include "common/counters.h"

#include <stdlib.h>
#include <string.h>

namespace {

struct device_hints {
    device_record *rec;
    int axis_slot;                     // last known holder of the time axis
    uint16_t app_ids[apps_per_device]; // an app id has 16 bits
};

struct absent_mac {
    u32 key;
    u32 asked; // epoch second
};

struct {
    u32 *keys; // a hash of each MAC text, in list order; apart from the hints so that a scan stays in a few cache lines
    device_hints *hints;
    size_t used;
    size_t room;
    const list_head *first; // the list's ends when it was read
    const list_head *last;
    absent_mac absent[8];
    size_t next_absent;
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
    auto *hints = static_cast<device_hints *>(realloc(table.hints, room * sizeof(device_hints)));
    if (hints)
        table.hints = hints;
    if (!keys || !hints) {
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
    hints.rec = rec;
    hints.axis_slot = 0;
    for (int i = 0; i < apps_per_device; i++)
        hints.app_ids[i] = static_cast<uint16_t>(rec->apps[i].app_id);
    table.keys[table.used++] = key_of(rec->mac);
    return true;
}

void note_list_ends()
{
    table.first = device_apps_head.next;
    table.last = device_apps_head.prev;
}

void forget_all()
{
    table.used = 0;
    table.first = table.last = nullptr;
    memset(table.absent, 0, sizeof(table.absent));
}

bool in_step()
{
    return table.first == device_apps_head.next && table.last == device_apps_head.prev;
}

// Without memory the table stays empty and out of step, and every look-up walks the list.
void read_list()
{
    forget_all();
    list_for_each(node, &device_apps_head) {
        if (!append(device_of(node))) {
            forget_all();
            return;
        }
    }
    note_list_ends();
}

device_record *walk_list(const char *mac_str)
{
    list_for_each(node, &device_apps_head) {
        device_record *rec = device_of(node);
        if (strcmp(rec->mac, mac_str) == 0)
            return rec;
    }
    return nullptr;
}

// True when the list itself was searched for the MAC within this second; notes the search otherwise.
bool lately_absent(u32 key, u32 now)
{
    for (const absent_mac &entry : table.absent) {
        if (entry.key == key && entry.asked == now)
            return true;
    }
    table.absent[table.next_absent] = {key, now};
    table.next_absent = (table.next_absent + 1) % (sizeof(table.absent) / sizeof(table.absent[0]));
    return false;
}

// Look-ups of one hit ask for the same device several times over.
device_hints *hints_of(const device_record *dev)
{
    static size_t latest = 0;
    if (latest < table.used && table.hints[latest].rec == dev)
        return &table.hints[latest];
    for (size_t i = 0; i < table.used; i++) {
        if (table.hints[i].rec == dev) {
            latest = i;
            return &table.hints[i];
        }
    }
    return nullptr;
}

bool holds_axis(const device_record *dev, int slot)
{
    return dev->apps[slot].app_id != 0 && dev->apps[slot].time_axis_app_state == APP_USING;
}

} // namespace

device_record *look_up_device(const char *mac_str, u32 now)
{
    if (!in_step())
        read_list();
    u32 key = key_of(mac_str);
    for (size_t i = 0; i < table.used; i++) {
        if (table.keys[i] == key && strcmp(table.hints[i].rec->mac, mac_str) == 0)
            return table.hints[i].rec;
    }
    if (table.used > 0 && lately_absent(key, now))
        return nullptr;
    device_record *rec = walk_list(mac_str);
    if (rec)
        read_list();
    return rec;
}

void index_linked_device(device_record *rec)
{
    bool was_in_step = table.first == device_apps_head.next && table.last == rec->node.prev && table.used > 0;
    if (!was_in_step || !append(rec)) {
        forget_all();
        return;
    }
    memset(table.absent, 0, sizeof(table.absent));
    note_list_ends();
}

void index_unlinked_device(const device_record *)
{
    // Rare, and a second record of the same MAC may come to the fore: the list is read again at the next look-up.
    forget_all();
}

int find_app_slot(device_record *dev, u32 app_id, int *free_slot)
{
    *free_slot = -1;
    device_hints *hints = hints_of(dev);
    if (hints) {
        for (int i = 0; i < apps_per_device; i++) {
            if (hints->app_ids[i] == app_id && dev->apps[i].app_id == app_id)
                return i;
        }
    }
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
