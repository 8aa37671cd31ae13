#include "tools/appidentctl/daemon_page.h"

#include <errno.h>
#include <signal.h>
#include <string.h>
#include <time.h>

namespace {

// 20 seconds until the device service is asked and one more until the loop runs.
constexpr u32 start_seconds = 21;
constexpr int most_counters = 256;

} // namespace

counters read_counters(const std::string &path)
{
    counters page;
    std::vector<counter_reading> read_here(most_counters);
    int read = counter_page_read(path.c_str(), read_here.data(), most_counters, &page.owner);
    if (read < 0)
        return page;
    page.found = true;
    page.all.assign(read_here.begin(), read_here.begin() + read);
    return page;
}

namespace {

constexpr const char *daemon_names[] = {APPIDENT_COUNTERS(COUNTER_NAME)};
constexpr const char *platform_names[] = {PLATFORM_COUNTERS(COUNTER_NAME)};
constexpr const char *feed_names[] = {FEED_COUNTERS(COUNTER_NAME)};

u32 value_of(const counters &page, const char *name)
{
    for (const counter_reading &one : page.all)
        if (strcmp(one.name, name) == 0)
            return one.value;
    return 0;
}

} // namespace

u32 counter_value(const counters &daemon, counter which)
{
    return value_of(daemon, daemon_names[which]);
}

u32 counter_value(const counters &platform, platform_counter which)
{
    return value_of(platform, platform_names[which]);
}

u32 counter_value(const counters &feed, feed_counter which)
{
    return value_of(feed, feed_names[which]);
}

bool owner_lives(const counters &page)
{
    return kill(static_cast<pid_t>(page.owner), 0) == 0 || errno != ESRCH;
}

u32 seconds_since(u32 uptime)
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<u32>(now.tv_sec) - uptime;
}

std::string told_text(const counters &feed)
{
    constexpr struct {
        feed_counter which;
        const char *name;
    } kinds[] = {{feed_flows_by_hello, "hello"},
                 {feed_flows_by_dns, "dns"},
                 {feed_flows_by_dpi, "dpi"},
                 {feed_flows_by_address, "address"}};
    unsigned long long told = 0, unknown = counter_value(feed, feed_flows_unknown);
    std::string by;
    for (const auto &one : kinds) {
        u32 value = counter_value(feed, one.which);
        told += value;
        by += std::string(by.empty() ? "" : ", ") + one.name + " " + std::to_string(value);
    }
    if (told + unknown == 0)
        return "none decided yet";
    unsigned long long share = (100 * unknown + (told + unknown) / 2) / (told + unknown);
    return std::to_string(100 - share) + " % told (" + by + "), " + std::to_string(share) + " % unknown";
}

daemon_state state_of(const counters &page)
{
    if (!page.found)
        return daemon_unseen;
    if (!owner_lives(page))
        return daemon_gone;
    return counter_value(page, counter_serving) ? daemon_serving : daemon_starting;
}

const char *state_name(daemon_state state)
{
    constexpr const char *names[] = {"not seen", "gone", "starting", "serving"};
    return names[state];
}

u32 seconds_to_start(const counters &page)
{
    u32 since = seconds_since(counter_value(page, counter_started_uptime));
    return since < start_seconds ? start_seconds - since : 0;
}
