// One message of the kernel about a neighbour, as far as it concerns the LAN.
#ifndef PLATFORM_LINUX_LAN_NEIGHBOUR_H
#define PLATFORM_LINUX_LAN_NEIGHBOUR_H

#include "igd/igd_types.h"

#include <netinet/in.h>

struct nlmsghdr;

struct lan_neighbour {
    u32 ip;       // network order; 0 where it is an IPv6 neighbour
    in6_addr ip6; // of that
    unsigned char mac[6];
    bool confirmed; // just now, or never in doubt; false while the kernel only remembers it
    bool usable;    // resolved to a device's MAC; false when it failed, is not resolved yet, was removed or is no device
};

// False for a message about anything but an IPv4 or IPv6 neighbour on the LAN interface. Any thread.
bool read_lan_neighbour(nlmsghdr *message, lan_neighbour *out);
// Its index, 0 when it is not there.
u32 lan_interface_index();

#endif
