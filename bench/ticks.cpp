#include "bench/ticks.h"

#include "appident/tracking/tick.h"
#include "bench/platform_calls.h"

#include <algorithm>
#include <time.h>
#include <vector>

namespace {

// Of this thread's processor time, so that other work on the machine is not in it.
double now_in_microseconds()
{
    timespec now = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) / 1e3;
}

tick_cost time_ticks(int times, u32 minute_ago, u32 catalogue_ago)
{
    std::vector<double> taken;
    unsigned calls = platform_calls();
    for (int i = 0; i < times; i++) {
        u32 now = static_cast<u32>(time(nullptr));
        tick_state state = {now - minute_ago, now - catalogue_ago, true};
        double before = now_in_microseconds();
        run_tick(state);
        taken.push_back(now_in_microseconds() - before);
    }
    calls = platform_calls() - calls;
    std::sort(taken.begin(), taken.end());
    return {taken[taken.size() / 2], static_cast<double>(calls) / times};
}

} // namespace

tick_report measure_ticks()
{
    time_ticks(3, 0, 0);
    tick_report report = {};
    report.plain = time_ticks(101, 0, 0);
    report.minute = time_ticks(11, 60, 0);
    report.catalogue = time_ticks(5, 0, 1200);
    return report;
}
