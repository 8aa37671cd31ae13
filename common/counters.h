// The daemon's own counters: how much came in, and one for each reason to drop something.
//
// Counting is one relaxed atomic addition, from any thread, with or without the lock.
#ifndef COMMON_COUNTERS_H
#define COMMON_COUNTERS_H

#include "common/counter_page.h"

constexpr const char *counters_path = "/tmp/.appident.counters";

// Each counter, once: its name, its kind, its meaning as `appidentctl status` prints it. A new counter is a new line here, at
// the place where status is to print it, and one in tests/unit/counters_test.cpp.
// clang-format off
#define APPIDENT_COUNTERS(row) \
    row(serving,             state,   "1 once the loop runs, 0 before") \
    row(started_uptime,      state,   "uptime second at which the process started") \
    row(traffic_messages,    total,   "traffic messages from the kernel") \
    row(traffic_short,       part,    "dropped: cut short") \
    row(traffic_other,       part,    "passed over: not accounting") \
    row(traffic_undecodable, part,    "accounting without all its attributes") \
    row(traffic_lost,        part,    "lost: the receive buffer was full") \
    row(hits_foreign,        part,    "dropped: no app of ours") \
    row(hits_payment_flow,   part,    "payment flows, not recorded as apps") \
    row(hits_unknown_mac,    part,    "dropped: no MAC known for the address") \
    row(hits_clock_unset,    part,    "dropped: clock not set") \
    row(hits_unknown_device, part,    "dropped: device not tracked") \
    row(hits_tracked,        part,    "recorded") \
    row(app_table_full,      part,    "dropped: the device's app table was full") \
    row(rules_not_kept,      part,    "rules beyond a session's 1,024, not kept") \
    row(last_hit_time,       instant, "last recorded") \
    row(router_messages,     total,   "router messages (devices, payment apps)") \
    row(router_ignored,      part,    "router messages ignored: short or of another kind") \
    row(requests,            total,   "requests answered") \
    row(requests_refused,    part,    "requests refused") \
    row(pushes,              total,   "pushes sent") \
    row(pushes_failed,       part,    "pushes refused by the push service") \
    row(last_push_time,      instant, "last push") \
    row(no_memory,           total,   "allocations refused") \
    row(ticks,               total,   "periodic passes")
// clang-format on

// counter_serving, counter_started_uptime ...
#define COUNTER_ID(name, kind, meaning) counter_##name,
enum counter : u32 { APPIDENT_COUNTERS(COUNTER_ID) counter_end };
#undef COUNTER_ID

// Makes the page, once, before there are threads; counting works before and without it.
void counters_init(void);
void count(counter which, u32 by = 1);
// For the counters that hold a state or a time.
void set_counter(counter which, u32 value);
// Copies them to the page, a few times a second at most: the loop does so before it waits, and each pass at its end.
void show_counters(void);

#endif
