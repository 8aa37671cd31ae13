// The history that appident-home keeps. Its own program reads the database and reports as JSON, so that this tool needs no
// SQLite and knows nothing of the tables.
#ifndef APPIDENTCTL_KEPT_HISTORY_H
#define APPIDENTCTL_KEPT_HISTORY_H

#include "common/guards.h"
#include "tools/appidentctl/command_line.h"
#include "tools/appidentctl/household.h"

#include <string>

enum history_outcome {
    history_read,
    history_not_installed, // there is no appident-home
    history_unreadable,    // no database yet, or no right to it
};

// Both "YYYY-MM-DD" and included.
struct history_days {
    std::string from, until;
};

// What is kept of the days; docs/home.md shows the form of the report. With `say_why`, appident-home's own words on a failure
// go to standard error.
history_outcome read_history(const command_line &line, const history_days &days, bool say_why, json_tree *report);

// Devices that the daemon has forgotten still have a history, and a name in it.
void add_kept_devices(const cJSON *report, household *known);

#endif
