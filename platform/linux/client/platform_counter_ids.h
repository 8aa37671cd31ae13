// The counters of the platform library, for the library that counts and for the tools that read its page.
#ifndef PLATFORM_LINUX_CLIENT_PLATFORM_COUNTER_IDS_H
#define PLATFORM_LINUX_CLIENT_PLATFORM_COUNTER_IDS_H

#include "common/counter_page.h"

// Each counter, once: its name, its kind, its meaning as `appidentctl status` prints it. A new counter is a new line here, at
// the place where status is to print it, and one in tests/unit/counters_test.cpp.
// clang-format off
#define PLATFORM_COUNTERS(row) \
    row(settings_unreadable,    total, "settings file unreadable, defaults in force") \
    row(no_memory,              total, "allocations refused") \
    row(no_descriptor,          total, "clients turned away: no descriptor left") \
    row(requests_served,        total, "requests taken in") \
    row(peers_refused,          part,  "clients turned away: no right to ask") \
    row(requests_malformed,     part,  "requests dropped: made no sense") \
    row(requests_too_slow,      part,  "clients dropped: asked nothing in time") \
    row(requests_vanished,      part,  "clients that left before asking") \
    row(requests_crowded_out,   part,  "clients dropped: too many waiting") \
    row(answers_undelivered,    part,  "answers that nobody took") \
    row(socket_retries,         total, "times that the request socket was not at its path and was put there again") \
    row(router_truncated,       total, "router messages too large to take") \
    row(router_overruns,        part,  "router messages lost: queue full") \
    row(config_unreadable,      total, "settings of a device that were no JSON, kept beside as .bad") \
    row(roster_unreadable,      total, "roster missing or unreadable; the last good one is in use") \
    row(roster_entries_refused, total, "roster entries left out: no MAC, twice, too many") \
    row(observed_unreadable,    total, "file of observed devices unreadable") \
    row(observed_unwritten,     total, "times that the observed devices could not be written") \
    row(devices_forgotten,      total, "observed devices that gave way to newer ones") \
    row(devices_refused,        total, "devices not taken: as many as fit have a role or a name given") \
    row(probes_sent,            total, "silent devices asked for") \
    row(probes_failed,          part,  "probes refused by the kernel") \
    row(host_messages,          total, "times that the daemon was told of a device on or off line") \
    row(host_messages_failed,   total, "times that it could not be told, to be tried again") \
    row(catalogue_unreadable,   total, "catalogue missing or unreadable") \
    row(neighbours_asked,       total, "look-ups of a MAC that asked the kernel") \
    row(neighbours_unknown,     part,  "look-ups without an answer") \
    row(neighbours_not_asked,   part,  "look-ups not made: too many this second") \
    row(neighbours_overruns,    total, "neighbour table read anew after losses") \
    row(neighbours_table_full,  total, "neighbour table full") \
    row(neighbours_reopened,    total, "neighbour notifications reopened") \
    row(pushes_accepted,        total, "pushes and status records taken") \
    row(pushes_dropped,         part,  "pushes dropped: queue full, too large, or not started") \
    row(spool_failed,           part,  "pushes not written to the spool") \
    row(subscribers_refused,    total, "subscribers turned away: no right, or too many") \
    row(subscribers_dropped,    total, "subscribers dropped: too slow")
// clang-format on

// platform_settings_unreadable, platform_no_memory ...
#define PLATFORM_COUNTER_ID(name, kind, meaning) platform_##name,
enum platform_counter : u32 { PLATFORM_COUNTERS(PLATFORM_COUNTER_ID) platform_counter_end };
#undef PLATFORM_COUNTER_ID

#endif
