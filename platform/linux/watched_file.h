// A JSON file that others replace while the daemon runs: read again when it changed, the last good contents kept otherwise.
#ifndef PLATFORM_LINUX_WATCHED_FILE_H
#define PLATFORM_LINUX_WATCHED_FILE_H

#include "common/guards.h"
#include "platform/linux/platform_counters.h"

#include <sys/stat.h>

// Guarded by its owner's lock.
struct watched_file {
    const char *name; // in state_dir
    platform_counter unreadable;
    bool looked; // `seen` holds what was met last, readable or not; all zero for a missing file
    struct stat seen;
};

// The new tree when the file changed and makes sense (an object), else null. What does not is counted once for each change. One
// stat a call when nothing changed.
json_tree read_when_changed(watched_file *file);

#endif
