// What the kernel says about the LAN interface.
#ifndef APPIDENTCTL_LAN_LOOK_H
#define APPIDENTCTL_LAN_LOOK_H

#include <string>

struct lan_look {
    bool exists;
    bool up;
    std::string address; // IPv4, empty for none
};

lan_look look_at_lan(const std::string &interface);
// Resolved IPv4 neighbours on the interface; -1 when the kernel does not show them.
int count_neighbours(const std::string &interface);

#endif
