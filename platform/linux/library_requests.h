// Requests that the library answers by itself, ids from 1000 on: the daemon never sees them.
#ifndef PLATFORM_LINUX_LIBRARY_REQUESTS_H
#define PLATFORM_LINUX_LIBRARY_REQUESTS_H

#include "common/guards.h"
#include "igd/igd_types.h"

// On the daemon's loop, so it must not wait. `text` is what the client sent, "" for nothing. 0 and, where there is something to
// answer, *answer; -1 for a request that is unknown or cannot be done.
int library_request(u32 id, const char *text, heap_text *answer);

#endif
