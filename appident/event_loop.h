// The daemon's three inputs, and the loop that serves them in fixed priority on the main thread.
#ifndef APPIDENT_EVENT_LOOP_H
#define APPIDENT_EVENT_LOOP_H

#include "igd/igd_netlink.h"

#include <sys/types.h>

// Reads and dispatches one message. 0 when it was handled, -1 when it was dropped.
int handle_traffic_event(int fd);
int handle_igd_msg(igd_netlink_handler *h);

// One message that was read, length bytes of a buffer that is aligned like a netlink message and may be changed.
int dispatch_traffic_message(unsigned char *buffer, ssize_t length);

// Serves for ever; each takes part unless its descriptor is negative.
[[noreturn]] void serve_events(int traffic_fd, igd_netlink_handler *messages, int request_fd);

#endif
