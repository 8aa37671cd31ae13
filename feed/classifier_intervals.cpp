// Bytes of flows become bytes of apps, and intervals of them become hits.
#include "feed/classifier.h"

#include <algorithm>

namespace {

constexpr uint64_t second_us = 1000000;
// A pause in a film or a chat's long silence leaves its connection open; attempts without an answer are forgotten soon.
constexpr uint64_t tcp_idle_us = 3600 * second_us;
constexpr uint64_t udp_idle_us = 300 * second_us;
constexpr uint64_t unanswered_idle_us = 60 * second_us;
constexpr uint64_t closed_idle_us = 5 * second_us;
constexpr uint64_t inspection_idle_us = 30 * second_us;
constexpr uint64_t device_idle_us = 24 * 3600 * second_us;
// After so many intervals without a packet nothing is in use any more, and the others need not be ended one by one.
constexpr uint64_t most_empty_intervals = intervals_until_unused + intervals_of_start;
// Time stamps of packets may be somewhat out of order; a greater step back is a clock that was set.
constexpr uint64_t most_disorder_us = 60 * second_us;

uint64_t longest_idle(const flow &one)
{
    if (one.closed == flow_closed)
        return closed_idle_us;
    if (!one.is_answered)
        return unanswered_idle_us;
    return one.key.protocol == protocol_tcp ? tcp_idle_us : udp_idle_us;
}

// A connection that is tracked may go on after hours of silence, or after the clock was set forward, and none of its packets
// would be shown again. end_count() forgets it once it is tracked no more.
bool is_over(const flow &one, uint64_t time_us)
{
    bool may_go_on = one.is_answered && one.closed != flow_closed;
    uint64_t last_us = may_go_on ? std::max(one.last_us, one.tracked_us) : one.last_us;
    return last_us + longest_idle(one) < time_us;
}

} // namespace

app_use *classifier::use_of(feed_device *device, uint32_t app)
{
    for (app_use &use : device->uses)
        if (use.app == app)
            return &use;
    if (device->uses.size() >= most_uses_of_device) {
        counts[feed_uses_full]++;
        return nullptr;
    }
    device->uses.emplace_back();
    device->uses.back().app = app;
    return &device->uses.back();
}

// A name that the device itself said counts at once. Other evidence needs a talk: probes that nobody answers, and whatever
// comes unasked from outside, are no use of anything.
void classifier::credit(flow *one)
{
    uint64_t bytes = one->waiting_up + one->waiting_down;
    if (bytes == 0 || !one->is_decided)
        return;
    bool counts_as_use = one->by == evidence::hello || (one->is_answered && !one->from_outside);
    if (one->app != 0 && !counts_as_use)
        return;
    uint64_t &moved = one->app != 0 ? bytes_told : bytes_unknown;
    moved += bytes;
    counts[one->app != 0 ? feed_kbytes_told : feed_kbytes_unknown] = moved / 1024;
    feed_device *device = devices.told_as(one->device);
    app_use *use = one->app != 0 ? use_of(device, one->app) : nullptr;
    if (use) {
        use->bytes[0].up += one->waiting_up;
        use->bytes[0].down += one->waiting_down;
        use->bytes[0].of_calls += one->is_call ? bytes : 0;
        use->bytes[0].embedded += one->is_embedded ? bytes : 0;
        one->interval_bytes = one->interval == interval_number ? one->interval_bytes + bytes : bytes;
        one->interval = interval_number;
        if (one->interval_bytes > use->most_bytes) {
            use->most_bytes = one->interval_bytes;
            if (!(use->flow == one->key) || use->by != one->by) {
                use->by = one->by;
                use->host = one->host;
                use->flow = one->key;
            }
        }
    }
    one->waiting_up = one->waiting_down = 0;
}

void classifier::drop_flow(flow *one)
{
    give_up(one); // what it moved counts now
    credit(one);
    if (flow_reports)
        flow_reports({one->key, one->first_us, one->app, one->by, one->host, one->up, one->down, one->is_call});
    flows.remove(one);
}

void classifier::end_flows()
{
    std::vector<std::pair<uint64_t, flow *>> open;
    for (flow &one : flows.records)
        if (one.device)
            open.push_back({one.first_us, &one});
    std::stable_sort(open.begin(), open.end(), [](const auto &a, const auto &b) { return a.first < b.first; });
    for (const auto &one : open)
        drop_flow(one.second);
}

void classifier::sweep(uint64_t time_us)
{
    for (flow &one : flows.records) {
        if (!one.device)
            continue;
        if (is_over(one, time_us)) {
            drop_flow(&one);
        } else if (one.looking && one.last_us + inspection_idle_us < time_us) {
            give_up(&one);
            credit(&one);
        }
    }
    for (feed_device &device : devices.all)
        if (device.address.family != 0 && device.flows == 0 && device.uses.empty() && device.last_us + device_idle_us < time_us)
            devices.remove(&device);
}

void classifier::tell_uses(feed_device *device)
{
    for (app_use &use : device->uses) {
        const app_entry *app = apps.find(use.app);
        if (!app) { // left out of the catalogue since
            use = {};
            continue;
        }
        hit found{};
        use_verdict verdict = ::end_interval(&use, *app, &found);
        if (verdict == use_verdict::silent)
            continue;
        found.device = device->address;
        found.time_us = interval_begin + interval_us;
        counts[found.is_marked ? feed_hits_marked : feed_hits_plain]++;
        if (found.device.family != 4)
            counts[feed_hits_not_told]++;
        hits(found);
    }
    auto &all = device->uses;
    all.erase(std::remove_if(all.begin(), all.end(), is_forgotten), all.end());
}

void classifier::end_interval()
{
    sweep(interval_begin + interval_us);
    for (feed_device &device : devices.all)
        if (device.address.family != 0)
            tell_uses(&device);
    interval_begin += interval_us;
    interval_number++;
}

void classifier::advance(uint64_t time_us)
{
    if (interval_begin == 0 || time_us + most_disorder_us < interval_begin)
        interval_begin = time_us;
    for (uint64_t ended = 0; time_us >= interval_begin + interval_us; ended++) {
        if (ended == most_empty_intervals)
            interval_begin += (time_us - interval_begin) / interval_us * interval_us;
        else
            end_interval();
    }
}

void classifier::finish()
{
    end_flows();
    end_interval();
}
