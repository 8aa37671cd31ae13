// How much the platform library took in, and one counter for each reason to drop something: runtime_dir/platform.counters.
//
// One relaxed atomic addition, from any thread.
#ifndef PLATFORM_LINUX_PLATFORM_COUNTERS_H
#define PLATFORM_LINUX_PLATFORM_COUNTERS_H

#include "igd/igd_types.h"

enum platform_counter : u32 {
    platform_settings_unreadable,
    platform_no_memory,
    platform_no_descriptor, // clients turned away for want of a descriptor
    platform_requests_served,
    platform_peers_refused,          // request clients without the right to ask
    platform_requests_malformed,     // lengths that make no sense, too large, another protocol
    platform_requests_too_slow,      // connected and sent nothing in time
    platform_requests_vanished,      // left before asking
    platform_requests_crowded_out,   // dropped for newer connections, too many waiting
    platform_answers_undelivered,    // the client left before, or did not take, its answer
    platform_router_foreign,         // router messages from a sender that is not root
    platform_router_truncated,       // larger than the caller's buffer
    platform_router_overruns,        // times that router messages were lost to a full receive buffer
    platform_roster_unreadable,      // missing, refused or no JSON; the last good one stays in use
    platform_roster_entries_refused, // devices without a MAC, given twice, or beyond the table
    platform_catalogue_unreadable,
    platform_neighbours_asked,     // look-ups that asked the kernel
    platform_neighbours_unknown,   // look-ups without an answer
    platform_neighbours_not_asked, // of these, not asked: too many questions this second
    platform_neighbours_overruns,  // notifications lost, the table was read anew
    platform_neighbours_table_full,
    platform_neighbours_reopened, // the notification socket failed
    platform_pushes_accepted,
    platform_pushes_dropped,      // queue full, too large, or the outlet is not running
    platform_spool_failed,        // lines that could not be written to the spool
    platform_subscribers_refused, // no right, or too many
    platform_subscribers_dropped, // too slow
    platform_counter_end
};

// Makes the page; counting works before and without it.
void platform_counters_start();
void count_platform(platform_counter which, u32 by = 1);

#endif
