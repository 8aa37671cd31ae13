// Asking the kernel to find out whether a neighbour is still there: it asks the device by ARP or as IPv6 does, and tells of the
// outcome as of any change. Needs CAP_NET_ADMIN.
#ifndef PLATFORM_LINUX_PROBES_H
#define PLATFORM_LINUX_PROBES_H

#include "platform/linux/observed.h"

// Never waits. The neighbours' thread only.
void probe_neighbour(const observed_device &device);

#endif
