// The daemon's own counters: how much came in, and one for each reason to drop something.
//
// Counting is one relaxed atomic addition, from any thread, with or without the lock.
#ifndef COMMON_COUNTERS_H
#define COMMON_COUNTERS_H

#include "common/counter_page.h"

constexpr const char *counters_path = "/tmp/.appident.counters";

enum counter : u32 {
    counter_serving,             // 0 while starting, 1 once the loop runs
    counter_started_uptime,      // uptime second at which the process started
    counter_traffic_messages,    // netlink messages read
    counter_traffic_short,       // too short, or longer than what was read
    counter_traffic_other,       // of a kind that is not accounting
    counter_traffic_undecodable, // accounting messages with an attribute missing
    counter_traffic_lost,        // dropped by the kernel, receive buffer full
    counter_hits_foreign,        // not of our vendor, or without an app id
    counter_hits_payment_flow,   // payment flows, never recorded as apps
    counter_hits_unknown_mac,    // no MAC known for the address
    counter_hits_clock_unset,    // wall clock not set yet
    counter_hits_unknown_device, // MAC not on the device list
    counter_hits_tracked,        // handed to a device's records
    counter_app_table_full,      // a device's app table had no room
    counter_last_hit_time,       // epoch second of the last tracked hit
    counter_router_messages,     // router messages received
    counter_router_ignored,      // short, or of a kind that is not ours
    counter_requests,            // requests answered
    counter_requests_refused,    // requests answered with -1
    counter_pushes,              // pushes accepted by the push service
    counter_pushes_failed,       // pushes refused by the push service
    counter_last_push_time,      // epoch second of the last accepted push
    counter_no_memory,           // allocations refused
    counter_ticks,               // periodic passes done
    counter_end
};

// Makes the page; counting works before and without it.
void counters_init(void);
void count(counter which, u32 by = 1);
// For the counters that hold a state or a time.
void set_counter(counter which, u32 value);

#endif
