// What Prometheus reads: the household's use in its text format, in base units.
//
// Counters of use, traffic and alerts begin at 0 with the program, as Prometheus expects; those of pushes live as long as the
// database.
#ifndef HOME_METRICS_H
#define HOME_METRICS_H

#include "home/history.h"

#include <map>
#include <string>
#include <utility>

struct household;

struct use_totals {
    int64_t minutes = 0, up = 0, down = 0;
};

// What the counters need from one reading to the next.
struct metrics_state {
    std::map<std::pair<int, std::pair<int64_t, u32>>, use_totals> seen; // highest sums seen, by day, device, app
    std::map<std::pair<int64_t, u32>, use_totals> totals;               // by device, app
    std::map<std::pair<int64_t, int64_t>, int64_t> alerts;              // by device, kind
};

// From now on counters count.
void begin_metrics(household *home);
std::string metrics_text(household *home);

#endif
