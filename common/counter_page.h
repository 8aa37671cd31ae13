// Named 32-bit counters in a small file that other processes read while the owner counts.
//
// Format, host order: counter_page_header, then `count` counter_slot records. Counters wrap at 2^32. The owner counts in memory
// of its own and copies the whole page to the file now and then. The file is not mapped: whoever truncates a mapped file ends
// the process at its next count, here the next copy mends it. The owner replaces the file when it starts, so a reader never
// meets another run's page; where no file can be made, counting goes on in memory.
// Rejected: a request for them (the request ids are the web interface's), log lines (a technician would have to wait for one).
#ifndef COMMON_COUNTER_PAGE_H
#define COMMON_COUNTER_PAGE_H

#include "igd/igd_types.h"

#include <atomic>

struct counter_page_header {
    u32 magic;
    u32 version;
    u32 count;
    u32 owner; // process id
};

struct counter_slot {
    char name[28];
    u32 value;
};
static_assert(sizeof(counter_slot) == 32, "a counter on file is 32 bytes");

// What a reader of a page needs to show a counter.
enum class counter_kind {
    total,   // a number of its own
    part,    // one kind, or one reason to drop, of the total before it
    instant, // epoch second, 0 for never
    state,   // no number to show among the others
};
struct counter_about {
    const char *name;
    counter_kind kind;
    const char *meaning;
};
// For the rows of a list of counters: the name alone, and all that is known of it.
#define COUNTER_NAME(name, kind, meaning) #name,
#define COUNTER_ABOUT(name, kind, meaning) {#name, counter_kind::kind, meaning},

constexpr u32 counter_page_magic = 0x41504331;
constexpr u32 counter_page_version = 1;

// What its owner counts. `values` are written by any thread at any time.
struct counter_page {
    const char *const *names;
    const std::atomic<u32> *values;
    u32 count;
    int fd; // -1 without a file
};

// Makes the file, in place of whatever else is at the path, readable by the owner and the group, and copies the page to it. Its
// descriptor, or -1.
int counter_page_create(const char *path, const counter_page &page);
// Copies the page to its file; without one it does nothing.
void counter_page_write(const counter_page &page);

// Reads a page: fills up to `capacity` counters and the owner's process id; their number, or -1 when there is no valid page.
struct counter_reading {
    char name[28];
    u32 value;
};
int counter_page_read(const char *path, counter_reading *out, int capacity, u32 *owner);

#endif
