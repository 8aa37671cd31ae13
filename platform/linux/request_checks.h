// What a request must look like before the daemon sees it. The daemon takes device texts as names of files and stores limits as
// they come, so this is where both are bounded.
#ifndef PLATFORM_LINUX_REQUEST_CHECKS_H
#define PLATFORM_LINUX_REQUEST_CHECKS_H

#include "platform/linux/client/request_protocol.h"

#include <stddef.h>

// `packet` is as long as `size` says; a longer one was cut by the reader, who tells its whole size.
bool request_makes_sense(const char *packet, size_t size);

#endif
