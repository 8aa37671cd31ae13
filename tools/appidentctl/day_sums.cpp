#include "tools/appidentctl/day_sums.h"

#include "tools/appidentctl/json_file.h"
#include "tools/appidentctl/spool.h"

#include <algorithm>

namespace {

constexpr int code_history = 1008;

time_t midnight_before(time_t now)
{
    struct tm local = {};
    localtime_r(&now, &local);
    local.tm_hour = local.tm_min = local.tm_sec = 0;
    local.tm_isdst = -1;
    return mktime(&local);
}

// When the session of a history push ended. A delayed push tells the uptime at which the day's end cut the session.
time_t end_of_session(const spool_push &push, time_t now)
{
    if (!push.occur_time)
        return push.time;
    timespec uptime = {};
    clock_gettime(CLOCK_BOOTTIME, &uptime);
    time_t end = now - uptime.tv_sec + push.occur_time;
    return std::min(end, push.time); // the box may have been started again since
}

} // namespace

day_sums sum_pushes_today(const places &where, time_t now)
{
    time_t begin = midnight_before(now);
    day_sums sums = {begin, 0, 0, {}};
    time_t first = 0;
    read_spool(where, [&](const std::string &line) {
        read_push_line(line, [&](const spool_push &push) {
            if (!first)
                first = push.time;
            sums.last_push = push.time;
            if (push.code != code_history || push.time < begin)
                return;
            time_t end = end_of_session(push, now);
            time_t length = static_cast<time_t>(json_number(push.data, "sumtime", 0));
            // A session over midnight counts from midnight on.
            time_t today = std::min(length, end - begin);
            if (today > 0)
                sums.minutes[push.mac][push.app_id] += static_cast<u32>(today / 60);
        });
    });
    sums.complete = first ? std::max(begin, first) : now;
    return sums;
}

void add_minutes_in_use(const std::vector<current_app> &now_in_use, time_t now, day_sums *sums)
{
    for (const current_app &one : now_in_use)
        sums->minutes[one.mac][one.app_id] += std::min(one.minutes, static_cast<u32>((now - sums->begin) / 60));
}

void take_kept_minutes(const cJSON *report, day_sums *sums)
{
    sums->minutes.clear();
    sums->complete = std::max(sums->begin, static_cast<time_t>(json_number(report, "kept_since", 0)));
    const cJSON *item = nullptr;
    cJSON_ArrayForEach(item, cJSON_GetObjectItem(report, "days")) {
        u32 app_id = static_cast<u32>(json_number(item, "app", 0));
        sums->minutes[json_text(item, "device")][app_id] += static_cast<u32>(json_number(item, "minutes", 0));
    }
}

u32 minutes_of(const day_sums &sums, const std::string &mac)
{
    u32 whole = 0;
    auto device = sums.minutes.find(mac);
    if (device != sums.minutes.end())
        for (const auto &app : device->second)
            whole += app.second;
    return whole;
}
