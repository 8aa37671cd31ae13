#include "platform/linux/neighbour_table.h"

#include "common/guards.h"

#include <atomic>

pthread_mutex_t neighbour_writers = PTHREAD_MUTEX_INITIALIZER;

namespace {

// At most half full, so that runs stay short.
constexpr u32 slot_bits = 11;
constexpr u32 slot_count = 1u << slot_bits;
static_assert(slot_count >= 2 * neighbour_most, "room beside every entry");
constexpr int patient_reads = 32;

struct slot {
    std::atomic<u32> ip;       // 0 is free
    std::atomic<u32> mac_head; // first two bytes
    std::atomic<u32> mac_tail; // last four
    u32 round;                 // writers only
};

slot slots[slot_count];
std::atomic<u32> sequence{0};
u32 entries = 0;

u32 home_of(u32 ip)
{
    return (ip * 0x9E3779B1u) >> (32 - slot_bits);
}

u32 after(u32 place)
{
    return (place + 1) & (slot_count - 1);
}

// Writes are visible as a whole or not at all: a reader that sees one of them also sees the odd number before it.
class write_guard {
public:
    write_guard() { sequence.store(sequence.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed); }
    ~write_guard() { sequence.store(sequence.load(std::memory_order_relaxed) + 1, std::memory_order_release); }
    write_guard(const write_guard &) = delete;
    write_guard &operator=(const write_guard &) = delete;
};

void put(slot &into, u32 ip, u32 head, u32 tail, u32 round)
{
    into.ip.store(ip, std::memory_order_release);
    into.mac_head.store(head, std::memory_order_release);
    into.mac_tail.store(tail, std::memory_order_release);
    into.round = round;
}

// Loads acquire, so that the sequence number is read again only after them.
bool look(u32 ip, u32 *head, u32 *tail)
{
    u32 place = home_of(ip);
    for (u32 tried = 0; tried < slot_count; ++tried, place = after(place)) {
        u32 here = slots[place].ip.load(std::memory_order_acquire);
        if (here == 0)
            return false;
        if (here != ip)
            continue;
        *head = slots[place].mac_head.load(std::memory_order_acquire);
        *tail = slots[place].mac_tail.load(std::memory_order_acquire);
        return true;
    }
    return false;
}

// The place of the address, or the free one where it belongs.
u32 place_for(u32 ip)
{
    u32 place = home_of(ip);
    for (u32 here = slots[place].ip; here != 0 && here != ip; here = slots[place].ip)
        place = after(place);
    return place;
}

// Later entries of the run move up where their home allows it, so that no look-up ends too early.
void remove_at(u32 hole)
{
    --entries;
    for (u32 next = after(hole);; next = after(next)) {
        u32 ip = slots[next].ip;
        if (ip == 0)
            break;
        u32 way_from_home = (next - home_of(ip)) & (slot_count - 1);
        u32 way_from_hole = (next - hole) & (slot_count - 1);
        if (way_from_home < way_from_hole)
            continue;
        put(slots[hole], ip, slots[next].mac_head, slots[next].mac_tail, slots[next].round);
        hole = next;
    }
    put(slots[hole], 0, 0, 0, 0);
}

} // namespace

bool neighbour_find(u32 ip, unsigned char *mac)
{
    if (ip == 0)
        return false;
    u32 head = 0, tail = 0;
    bool found = false, settled = false;
    for (int reads = 0; reads < patient_reads && !settled; ++reads) {
        u32 before = sequence.load(std::memory_order_acquire);
        if (before & 1)
            continue;
        found = look(ip, &head, &tail);
        settled = sequence.load(std::memory_order_relaxed) == before;
    }
    if (!settled) {
        mutex_guard held(neighbour_writers);
        found = look(ip, &head, &tail);
    }
    if (!found)
        return false;
    mac[0] = static_cast<unsigned char>(head >> 8);
    mac[1] = static_cast<unsigned char>(head);
    for (int i = 0; i < 4; ++i)
        mac[2 + i] = static_cast<unsigned char>(tail >> (24 - 8 * i));
    return true;
}

bool neighbour_store(u32 ip, const unsigned char *mac, u32 round)
{
    u32 head = static_cast<u32>(mac[0]) << 8 | mac[1];
    u32 tail = static_cast<u32>(mac[2]) << 24 | static_cast<u32>(mac[3]) << 16 | static_cast<u32>(mac[4]) << 8 | mac[5];
    slot &here = slots[place_for(ip)];
    // Most notifications confirm what is known; readers need not notice.
    if (here.ip == ip && here.mac_head == head && here.mac_tail == tail) {
        here.round = round;
        return true;
    }
    if (here.ip == 0 && entries == neighbour_most)
        return false;
    if (here.ip == 0)
        ++entries;
    write_guard writing;
    put(here, ip, head, tail, round);
    return true;
}

void neighbour_forget(u32 ip)
{
    u32 place = place_for(ip);
    if (slots[place].ip == 0)
        return;
    write_guard writing;
    remove_at(place);
}

void neighbour_sweep(u32 round)
{
    // What moves into a freed place is judged next. What moves round the end has been judged at the front.
    for (slot &here : slots)
        while (here.ip != 0 && here.round != round) {
            write_guard writing;
            remove_at(static_cast<u32>(&here - slots));
        }
}
