// What a counter page says: the counters of the daemon, of the platform library or of the feed, and whether their owner lives.
#ifndef APPIDENTCTL_DAEMON_PAGE_H
#define APPIDENTCTL_DAEMON_PAGE_H

#include "common/counters.h"
#include "feed/feed_counters.h"
#include "platform/linux/client/platform_counter_ids.h"

#include <string>
#include <vector>

enum daemon_state {
    daemon_unseen,   // no page
    daemon_gone,     // the process that wrote the page is no more; the figures are those of its run
    daemon_starting, // within its first 21 seconds, when it answers nothing
    daemon_serving,
};

struct counters {
    bool found = false;
    u32 owner = 0; // process id
    std::vector<counter_reading> all;
};

counters read_counters(const std::string &path);
// A counter by its id, which must be one of that page: 0 when the page, written by another release, does not have it.
u32 counter_value(const counters &daemon, counter which);
u32 counter_value(const counters &platform, platform_counter which);
u32 counter_value(const counters &feed, feed_counter which);

bool owner_lives(const counters &page);
// Seconds of up-time since that one.
u32 seconds_since(u32 uptime);

// "81 % told (by hello 70, dns 9, dpi 2, address 0), 19 % unknown", of the feed's connections that are decided.
std::string told_text(const counters &feed);

// page: the daemon's own.
daemon_state state_of(const counters &page);
const char *state_name(daemon_state state);
// Seconds until a starting daemon serves, 0 when that is not known.
u32 seconds_to_start(const counters &page);

#endif
