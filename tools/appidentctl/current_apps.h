// The apps that devices use right now, as the daemon answers.
#ifndef APPIDENTCTL_CURRENT_APPS_H
#define APPIDENTCTL_CURRENT_APPS_H

#include "igd/igd_types.h"
#include "tools/appidentctl/places.h"

#include <string>
#include <time.h>
#include <vector>

struct current_app {
    std::string mac;
    u32 app_id;
    time_t since; // epoch seconds
    u32 minutes;  // of this session so far
};

// first_minute: also apps in their first minute. Returns an exit code; a failure was said on standard error.
int ask_current_apps(const places &where, const std::vector<std::string> &macs, bool first_minute,
                     std::vector<current_app> *apps);

#endif
