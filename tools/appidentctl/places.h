// Where the daemon and the stock platform library keep what the tool looks at.
#ifndef APPIDENTCTL_PLACES_H
#define APPIDENTCTL_PLACES_H

#include "tools/appidentctl/command_line.h"

#include <string>
#include <vector>

struct places {
    std::string socket;
    int timeout_ms;
    std::string counters; // the daemon's own page
    std::string log;
    std::string settings; // the platform library's settings file; what follows comes from it
    bool settings_valid;  // false: the file is there and makes no sense, the defaults are in force
    std::string platform_counters;
    std::string feed_counters;
    std::string roster;
    std::string installed_catalogue;
    std::string catalogue;                // the household's own, which adds to the installed one
    std::vector<std::string> push_spools; // the older one first
    std::string push_socket;
    std::string state_dir;
    std::string lan_interface;
};

// From the options and the settings file, with the defaults of the daemon and the platform library.
// False, with the reason on standard error, when an option makes no sense.
bool find_places(const command_line &line, places *found);

#endif
