// Which of the kernel's links is the likeliest LAN, by what is known of them; asks nobody.
#ifndef PLATFORM_LINUX_LAN_FITNESS_H
#define PLATFORM_LINUX_LAN_FITNESS_H

#include <stddef.h>

struct lan_link {
    char name[16];
    char kind[16]; // as rtnetlink calls what made it: "bridge", "vlan"...; empty for hardware
    int index;
    int master;       // index of the bridge or bond that it is a port of, 0 for none
    int carrier;      // index of the link that it is a VLAN of, 0 for none
    bool has_address; // a private one of IPv4
    bool may_be_lan;  // it is up, is Ethernet and has such an address and no default route
};

constexpr const char *customary_lan = "br-lan";

// The first of the fittest; null, and fitness 0, where none will do.
const lan_link *fittest_lan(const lan_link *links, size_t count, int *fitness);

#endif
