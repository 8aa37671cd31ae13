// What doctor looks at, and what a look at it says.
#ifndef APPIDENTCTL_FINDING_H
#define APPIDENTCTL_FINDING_H

#include "tools/appidentctl/daemon_page.h"
#include "tools/appidentctl/household.h"

#include <time.h>

enum severity { fine, warning, fault };

struct finding {
    severity level;
    std::string text;
    std::string advice; // what to do; empty when all is well
};

struct evidence {
    const places &where;
    counters own, platform, feed;
    daemon_state state;
    household known;
    time_t now;
    bool reachable;

    u32 operator[](counter which) const { return counter_value(own, which); }
    u32 operator[](platform_counter which) const { return counter_value(platform, which); }
    u32 operator[](feed_counter which) const { return counter_value(feed, which); }
    bool feed_runs() const { return feed.found && owner_lives(feed); }
};

// In a household that has devices, the router forwards something within this time. Nothing since an uptime second: a warning
// until then, a fault after it.
constexpr u32 quiet_seconds = 600;
severity level_after_quiet(u32 since);

// A counter that should be 0.
finding expect_none(u32 value, const char *what, const char *advice);

// Connection tracking tells of other things too; only accounting messages carry apps.
u32 accounting_messages(const evidence &seen);

finding check_feed(const evidence &seen);
// These say something only where the feed has a page.
finding check_feed_losses(const evidence &seen);
finding check_feed_tables(const evidence &seen);
finding check_offloading(const evidence &seen);
finding check_app_rules(const evidence &seen);

#endif
