#include "platform/linux/platform_counters.h"

#include "common/counter_page.h"
#include "platform/linux/client/settings.h"
#include "platform/linux/directories.h"

#include <pthread.h>

namespace {

// In the order of the enumeration.
constexpr const char *names[] = {
    "settings_unreadable",   "no_memory",           "no_descriptor",      "requests_served",      "peers_refused",
    "requests_malformed",    "requests_too_slow",   "requests_vanished",  "requests_crowded_out", "answers_undelivered",
    "router_foreign",        "router_truncated",    "router_overruns",    "roster_unreadable",    "roster_entries_refused",
    "catalogue_unreadable",  "neighbours_asked",    "neighbours_unknown", "neighbours_not_asked", "neighbours_overruns",
    "neighbours_table_full", "neighbours_reopened", "pushes_accepted",    "pushes_dropped",       "spool_failed",
    "subscribers_refused",   "subscribers_dropped",
};
static_assert(sizeof(names) / sizeof(names[0]) == platform_counter_end, "a name for each counter");

counter_slot in_memory[platform_counter_end];
counter_slot *slots = in_memory;
pthread_once_t made_once = PTHREAD_ONCE_INIT;

void make_page()
{
    char path[state_path_size];
    runtime_path(path, "platform.counters");
    make_directory(settings().runtime_dir, 0755);
    if (counter_slot *page = counter_page_create(path, names, platform_counter_end))
        slots = page;
    if (settings().unreadable)
        slots[platform_settings_unreadable].value.fetch_add(1, std::memory_order_relaxed);
}

} // namespace

void platform_counters_start()
{
    pthread_once(&made_once, make_page);
}

void count_platform(platform_counter which, u32 by)
{
    platform_counters_start();
    slots[which].value.fetch_add(by, std::memory_order_relaxed);
}
