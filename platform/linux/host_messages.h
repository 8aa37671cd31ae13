// Host messages as a router's kernel sends them, for a box whose kernel sends none: a device came on line or went off line.
// They go to the daemon's end of the router messaging channel (see message_channel.h), so that it takes them on its own loop.
#ifndef PLATFORM_LINUX_HOST_MESSAGES_H
#define PLATFORM_LINUX_HOST_MESSAGES_H

#include "igd/igd_types.h"

// False when the daemon's end has no room or none can be sent; then the caller tries again later. ip in network order. With
// observed_lock held.
bool tell_on_line(const unsigned char *mac, u32 ip);
bool tell_off_line(const unsigned char *mac, u32 ip);

#endif
