// A JSON file that others replace while the daemon runs: read again when it changed.
#ifndef PLATFORM_LINUX_WATCHED_FILE_H
#define PLATFORM_LINUX_WATCHED_FILE_H

#include "common/guards.h"
#include "platform/linux/platform_counters.h"

#include <sys/stat.h>

// Guarded by its owner's lock.
struct watched_file {
    platform_counter unreadable;
    bool looked; // `seen` holds what was met last, readable or not; all zero for a missing file
    bool met;    // it could be read once
    struct stat seen;
};

enum file_news {
    file_unchanged,
    file_fresh,   // new contents that make sense (an object)
    file_gone,    // it is not there; counted when it could be read before
    file_useless, // refused, or no object; counted
};

// What is new since the last call; `root` is filled for file_fresh alone. One stat a call when nothing changed.
file_news look_at_file(watched_file *file, const char *path, json_tree *root);

#endif
