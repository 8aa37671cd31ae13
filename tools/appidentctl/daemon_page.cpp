#include "tools/appidentctl/daemon_page.h"

#include <errno.h>
#include <signal.h>
#include <string.h>
#include <time.h>

// 20 seconds until the device service is asked and one more until the loop runs.
static constexpr u32 start_seconds = 21;
static constexpr int most_counters = 256;

counters read_counters(const std::string &path)
{
    counters page;
    std::vector<counter_reading> room(most_counters);
    int read = counter_page_read(path.c_str(), room.data(), most_counters, &page.owner);
    if (read < 0)
        return page;
    page.found = true;
    page.all.assign(room.begin(), room.begin() + read);
    return page;
}

u32 counter_value(const counters &page, const char *name)
{
    for (const counter_reading &one : page.all)
        if (strcmp(one.name, name) == 0)
            return one.value;
    return 0;
}

daemon_state state_of(const counters &page)
{
    if (!page.found)
        return daemon_unseen;
    if (kill(static_cast<pid_t>(page.owner), 0) != 0 && errno == ESRCH)
        return daemon_gone;
    return counter_value(page, "serving") ? daemon_serving : daemon_starting;
}

const char *state_name(daemon_state state)
{
    constexpr const char *names[] = {"not seen", "gone", "starting", "serving"};
    return names[state];
}

u32 seconds_to_start(const counters &page)
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    u32 since = static_cast<u32>(now.tv_sec) - counter_value(page, "started_uptime");
    return since < start_seconds ? start_seconds - since : 0;
}
