#include "common/counters.h"

#include <time.h>

namespace {

constexpr const char *names[] = {APPIDENT_COUNTERS(COUNTER_NAME)};

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
