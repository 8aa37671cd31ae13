// How much the platform library took in, and one counter for each reason to drop something: runtime_dir/platform.counters.
//
// An atomic addition, from any thread; a worker copies them to the page within a quarter of a second.
#ifndef PLATFORM_LINUX_PLATFORM_COUNTERS_H
#define PLATFORM_LINUX_PLATFORM_COUNTERS_H

#include "platform/linux/client/platform_counter_ids.h"

// Makes the page; counting works before and without it.
void platform_counters_start();
void count_platform(platform_counter which, u32 by = 1);

#endif
