#include "common/counters.h"

#include <time.h>

namespace {

constexpr const char *names[] = {APPIDENT_COUNTERS(COUNTER_NAME)};
constexpr u32 milliseconds_between_copies = 250;

std::atomic<u32> values[counter_end];
counter_page page = {names, values, counter_end, -1};
std::atomic<u32> copied_at{0};

// Wraps.
u32 uptime_milliseconds()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return static_cast<u32>(now.tv_sec) * 1000 + static_cast<u32>(now.tv_nsec / 1000000);
}

} // namespace

void counters_init(void)
{
    timespec now;
    if (clock_gettime(CLOCK_MONOTONIC, &now) == 0)
        set_counter(counter_started_uptime, static_cast<u32>(now.tv_sec));
    page.fd = counter_page_create(counters_path, page);
}

void count(counter which, u32 by)
{
    values[which].fetch_add(by, std::memory_order_relaxed);
}

void set_counter(counter which, u32 value)
{
    values[which].store(value, std::memory_order_relaxed);
}

void show_counters(void)
{
    u32 now = uptime_milliseconds(), then = copied_at.load(std::memory_order_relaxed);
    if (now - then >= milliseconds_between_copies && copied_at.compare_exchange_strong(then, now))
        counter_page_write(page);
}
