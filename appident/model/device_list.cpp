#include "appident/model/device_list.h"

#include "common/mac_text.h"

#include <string.h>

namespace {

struct indexed_device {
    u64 key;
    device_record *record;
    char mac[mac_text_size]; // the record was found under this text
};

// An open hash table of numbers of entries, plus 1; at most half full.
constexpr u32 place_bits = 11;
constexpr u32 places = 1u << place_bits;
static_assert(places >= 2 * most_indexed_devices, "a free place beside each device");

struct {
    indexed_device devices[most_indexed_devices];
    uint16_t numbers[places];
    u32 used;
    u32 latest; // number of the device found last
    // The list as it was indexed.
    const list_head *first;
    const list_head *last;
    unsigned removals;
} device_index;

// A MAC that is not in the list, as long as the number is the current one.
struct absent_mac {
    u64 key;
    u32 while_number;
};
constexpr u32 absent_bits = 10;
absent_mac absent_macs[1u << absent_bits];
u32 absent_number = 1;

// A text as write_mac_text writes it; others have no key.
bool read_own_mac_text(const char *text, unsigned char (&mac)[6])
{
    char written[mac_text_size];
    if (!read_mac_text(text, mac))
        return false;
    write_mac_text(mac, written);
    return strcmp(text, written) == 0;
}

u64 key_of(const unsigned char *mac)
{
    u64 key = 0;
    memcpy(&key, mac, 6);
    return key;
}

u32 hash_of(u64 key, u32 bits)
{
    return static_cast<u32>((key * 0x9E3779B97F4A7C15u) >> (64 - bits));
}

device_record *walk_from(const list_head *node, const char *mac_str)
{
    for (list_head *next = node->next; next != &device_apps_head; next = next->next) {
        if (strcmp(device_of(next)->mac, mac_str) == 0)
            return device_of(next);
    }
    return nullptr;
}

// The place of the key, or the free place where it belongs.
uint16_t &place_of(u64 key)
{
    u32 place = hash_of(key, place_bits);
    while (device_index.numbers[place] != 0 && device_index.devices[device_index.numbers[place] - 1].key != key)
        place = (place + 1) % places;
    return device_index.numbers[place];
}

// The first record with a MAC is the one that is found, so a later one of the same MAC is left out. A text that is no MAC is
// never asked for by its bytes.
void add_to_index(device_record *rec)
{
    unsigned char mac[6];
    if (!read_own_mac_text(rec->mac, mac) || device_index.used == most_indexed_devices)
        return;
    u64 key = key_of(mac);
    uint16_t &number = place_of(key);
    if (number != 0)
        return;
    indexed_device &added = device_index.devices[device_index.used++];
    added.key = key;
    added.record = rec;
    memcpy(added.mac, rec->mac, sizeof(added.mac));
    number = static_cast<uint16_t>(device_index.used);
}

bool index_is_current()
{
    return device_apps_head.next == device_index.first && device_apps_head.prev == device_index.last &&
           device_index.removals == list_removals.load(std::memory_order_relaxed);
}

void note_list()
{
    device_index.first = device_apps_head.next;
    device_index.last = device_apps_head.prev;
    device_index.removals = list_removals.load(std::memory_order_relaxed);
    forget_absent_devices();
}

void index_list()
{
    memset(device_index.numbers, 0, sizeof(device_index.numbers));
    device_index.used = 0;
    list_for_each(node, &device_apps_head)
        add_to_index(device_of(node));
    note_list();
}

// For a MAC that is not in the index, or whose record has another MAC by now.
device_record *search_list(u64 key, const unsigned char *mac)
{
    absent_mac &absent = absent_macs[hash_of(key, absent_bits)];
    if (absent.key == key && absent.while_number == absent_number)
        return nullptr;
    char mac_str[mac_text_size];
    write_mac_text(mac, mac_str);
    device_record *rec = walk_from(&device_apps_head, mac_str);
    uint16_t number = place_of(key);
    if (!rec)
        absent = {key, absent_number};
    else if (number != 0)
        device_index.devices[number - 1].record = rec;
    else
        add_to_index(rec);
    return rec;
}

} // namespace

device_record *tracked_device(const char *mac_str)
{
    unsigned char mac[6];
    return read_own_mac_text(mac_str, mac) ? tracked_device(mac) : walk_from(&device_apps_head, mac_str);
}

device_record *tracked_device(const unsigned char *mac)
{
    if (!index_is_current())
        index_list();
    u64 key = key_of(mac);
    u32 number = place_of(key);
    if (number == 0)
        return search_list(key, mac);
    const indexed_device &found = device_index.devices[number - 1];
    if (memcmp(found.record->mac, found.mac, sizeof(found.mac)) != 0)
        return search_list(key, mac);
    device_index.latest = number - 1;
    return found.record;
}

device_record *next_of_same_mac(device_record *rec)
{
    return walk_from(&rec->node, rec->mac);
}

void link_device(device_record *rec)
{
    bool was_current = index_is_current();
    list_add_tail(&rec->node, &device_apps_head);
    if (!was_current)
        return;
    add_to_index(rec);
    note_list();
}

void remove_device(device_record *rec)
{
    list_del(&rec->node); // is noticed like a removal by others
    free_device_record(rec);
}

void forget_absent_devices(void)
{
    absent_number++;
}

int device_number(const device_record *rec)
{
    u32 number = device_index.latest;
    if (number < device_index.used && device_index.devices[number].record == rec)
        return static_cast<int>(number);
    unsigned char mac[6];
    if (!index_is_current() || !read_own_mac_text(rec->mac, mac))
        return -1;
    number = place_of(key_of(mac));
    if (number == 0 || device_index.devices[number - 1].record != rec)
        return -1;
    device_index.latest = number - 1;
    return static_cast<int>(number) - 1;
}
