#include "common/counters.h"

#include <time.h>

namespace {

// Names on the page, in the order of the enumeration.
constexpr const char *names[] = {
    "serving",          "started_uptime", "traffic_messages",  "traffic_short",    "traffic_other",    "traffic_undecodable",
    "traffic_lost",     "hits_foreign",   "hits_payment_flow", "hits_unknown_mac", "hits_clock_unset", "hits_unknown_device",
    "hits_tracked",     "app_table_full", "last_hit_time",     "router_messages",  "router_ignored",   "requests",
    "requests_refused", "pushes",         "pushes_failed",     "last_push_time",   "no_memory",        "ticks",
};
static_assert(sizeof(names) / sizeof(names[0]) == counter_end, "a name for each counter");

counter_slot in_memory[counter_end];
counter_slot *slots = in_memory;

} // namespace

void counters_init(void)
{
    if (counter_slot *page = counter_page_create(counters_path, names, counter_end))
        slots = page;
    timespec now;
    if (clock_gettime(CLOCK_MONOTONIC, &now) == 0)
        set_counter(counter_started_uptime, static_cast<u32>(now.tv_sec));
}

void count(counter which, u32 by)
{
    slots[which].value.fetch_add(by, std::memory_order_relaxed);
}

void set_counter(counter which, u32 value)
{
    slots[which].value.store(value, std::memory_order_relaxed);
}
