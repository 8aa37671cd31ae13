// The daemon's own count, which its limits go by: since when it runs, and how much is in it.
//
// The daemon does not tell it. It begins anew at 23:00, at midnight, when the daemon restarts and when the device leaves, and
// takes in the sessions that began since.
#ifndef HOME_DAEMON_COUNT_H
#define HOME_DAEMON_COUNT_H

#include "home/queries.h"
#include "home/serve.h"

struct count_start {
    int64_t time;    // epoch second
    const char *why; // "midnight", "23:00", "restart" or "off_line": the latest of them
};
count_start daemon_count_start(household *home, const known_device &device, int64_t now);

// It runs and does not answer yet, as far as its counters tell.
bool daemon_is_starting();
// Since when the daemon runs: as it says itself, else as its first push tells; 0 unknown.
int64_t daemon_began(household *home, int64_t now);

// What a limit of the class has counted, in minutes: the sum of its apps, or the longest of the running sessions (class 5).
int64_t minutes_counted(database *db, int64_t device, u32 class_type, const std::vector<u32> &apps, int64_t since);

#endif
