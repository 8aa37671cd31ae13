// The devices and the apps that a household is made of, for the files and the network that a test or the simulator sets up.
#ifndef SIMULATOR_WORLD_DEVICES_AND_APPS_H
#define SIMULATOR_WORLD_DEVICES_AND_APPS_H

#include "igd/igd_types.h"

#include <string>
#include <vector>

// Epoch second of the household's clock.
typedef int64_t moment;

// An app of the catalogue; it appears there at `known_from`.
struct app_entry {
    u32 id;
    std::string name;
    u32 small_class;
    moment known_from;
};

struct device_entry {
    std::string name;
    std::string mac; // MAC text
    std::string ip;
    int role;
    int group;
    bool online; // at the start
};

#endif
