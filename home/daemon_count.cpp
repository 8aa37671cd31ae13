#include "home/daemon_count.h"

#include "common/counters.h"
#include "home/days.h"
#include "home/sessions.h"

#include <algorithm>
#include <errno.h>
#include <signal.h>
#include <string.h>
#include <time.h>

namespace {

constexpr u32 class_of_breaks = 5;
constexpr const char *names[] = {APPIDENT_COUNTERS(COUNTER_NAME)};

u32 value_of(const std::vector<counter_reading> &page, counter which)
{
    for (const counter_reading &one : page)
        if (strcmp(one.name, names[which]) == 0)
            return one.value;
    return 0;
}

// What the daemon says of itself; `began` 0 when it does not run, or its page cannot be read.
struct daemon_page {
    u32 began; // uptime second
    bool serving;
};
daemon_page read_daemon_page()
{
    std::vector<counter_reading> page(counter_end);
    u32 owner = 0;
    int read = counter_page_read(counters_path, page.data(), counter_end, &owner);
    page.resize(static_cast<size_t>(std::max(read, 0)));
    bool alive = read > 0 && (kill(static_cast<pid_t>(owner), 0) == 0 || errno != ESRCH);
    return {alive ? value_of(page, counter_started_uptime) : 0, value_of(page, counter_serving) != 0};
}

} // namespace

bool daemon_is_starting()
{
    daemon_page page = read_daemon_page();
    return page.began > 0 && !page.serving;
}

int64_t daemon_began(household *home, int64_t now)
{
    u32 began = read_daemon_page().began;
    return began > 0 ? now - uptime_ms() / 1000 + began : daemon_since(&home->all.db);
}

count_start daemon_count_start(household *home, const known_device &device, int64_t now)
{
    constexpr int64_t hour = 3600;
    int today = day_of(now);
    auto came = home->truth.on_line_since.find(device.mac);
    int64_t evening = day_end(today) - hour;
    const count_start all[] = {
        {day_start(today), "midnight"},
        {now >= evening ? evening : 0, "23:00"},
        {daemon_began(home, now), "restart"},
        {came != home->truth.on_line_since.end() ? came->second : device.last_seen, "off_line"},
    };
    return *std::max_element(std::begin(all), std::end(all),
                             [](const count_start &one, const count_start &other) { return one.time < other.time; });
}

int64_t minutes_counted(database *db, int64_t device, u32 class_type, const std::vector<u32> &apps, int64_t since)
{
    int64_t sum = 0, longest = 0;
    for (const session &one : sessions_between(db, since, INT64_MAX / 2, device)) {
        if (one.start < since)
            continue;
        if (one.state == session_open)
            longest = std::max(longest, one.minutes);
        if (std::find(apps.begin(), apps.end(), one.app) != apps.end())
            sum += one.minutes;
    }
    return class_type == class_of_breaks ? longest : sum;
}
