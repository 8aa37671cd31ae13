// Asking the kernel to find out whether a neighbour is still there: it asks the device by ARP and tells of the outcome as of
// any change. Needs CAP_NET_ADMIN.
#ifndef PLATFORM_LINUX_PROBES_H
#define PLATFORM_LINUX_PROBES_H

#include "igd/igd_types.h"

// Never waits. ip in network order. The neighbours' thread only.
void probe_neighbour(u32 ip);

#endif
