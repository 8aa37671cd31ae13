// The minutes of a day, from the history pushes in the spool and the apps in use now.
#ifndef APPIDENTCTL_DAY_SUMS_H
#define APPIDENTCTL_DAY_SUMS_H

#include "tools/appidentctl/current_apps.h"
#include "tools/appidentctl/places.h"

#include <map>
#include <string>
#include <time.h>

struct day_sums {
    time_t begin;    // local midnight
    time_t complete; // from when on nothing is missing: midnight, or the first push that the spool still holds
    bool spool_found;
    std::map<std::string, std::map<u32, u32>> minutes; // by MAC text and app
};

// Today, up to now. `now_in_use` is what the daemon answers for this moment; empty without a daemon.
day_sums sum_today(const places &where, const std::vector<current_app> &now_in_use, time_t now);

u32 minutes_of(const day_sums &sums, const std::string &mac);

#endif
