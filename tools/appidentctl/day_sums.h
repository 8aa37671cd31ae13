// The minutes of a day, from the history pushes in the spool and the apps in use now.
#ifndef APPIDENTCTL_DAY_SUMS_H
#define APPIDENTCTL_DAY_SUMS_H

#include "common/guards.h"
#include "tools/appidentctl/current_apps.h"
#include "tools/appidentctl/places.h"

#include <map>
#include <string>
#include <time.h>

struct day_sums {
    time_t begin;     // local midnight
    time_t complete;  // from when on nothing is missing: midnight, or the first push that the spool still holds
    time_t last_push; // 0: the spool holds none
    std::map<std::string, std::map<u32, u32>> minutes; // by MAC text and app
};

// What ended today, by the spool.
day_sums sum_pushes_today(const places &where, time_t now);
// And what the daemon answers for this moment.
void add_minutes_in_use(const std::vector<current_app> &now_in_use, time_t now, day_sums *sums);
// The minutes of today in a report of appident-home, which lack nothing since its history began.
void take_kept_minutes(const cJSON *report, day_sums *sums);

u32 minutes_of(const day_sums &sums, const std::string &mac);

#endif
