#include "platform/linux/platform_counters.h"

#include "platform/linux/client/settings.h"
#include "platform/linux/directories.h"

#include <pthread.h>

namespace {

constexpr const char *names[] = {PLATFORM_COUNTERS(COUNTER_NAME)};

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
