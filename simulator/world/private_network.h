// A network and a /tmp of our own, in which the daemon meets nothing of the machine it runs on.
//
// Works as root, and unprivileged where user namespaces are allowed.
#ifndef SIMULATOR_WORLD_PRIVATE_NETWORK_H
#define SIMULATOR_WORLD_PRIVATE_NETWORK_H

#include "simulator/world/devices_and_apps.h"

constexpr const char *lan_interface_name = "br-lan";

// Whether a network namespace that this process makes is its own to set up. Root may lack that right, as in a plain container.
bool may_set_up_networks();
// Whether this process already stands inside.
bool inside_private_network();
// Replaces this process by the same program inside new namespaces, run by the words of `wrapper` where there are any; the
// program calls it until it stands inside. /dev/shm is its own then. Returns only on failure, with a sentence for the user.
std::string enter_private_network(char **argv, const std::vector<std::string> &wrapper);

// The steps inside. Each returns false after saying on standard error what is missing.
// An empty /tmp; of the old one, what these paths need stays visible.
bool make_private_tmp(const std::vector<std::string> &needed_paths);
// br-lan, up, with the address (such as "192.168.77.1/24"), and the loopback interface.
bool make_lan(const std::string &address);
// A neighbour that the kernel has just heard of.
bool meet_neighbour(const std::string &ip, const std::string &mac);
// A permanent neighbour entry for each device.
bool settle_neighbours(const std::vector<device_entry> &devices);

#endif
