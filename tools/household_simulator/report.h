// What the household reads: the timeline as it happens, and the tables at the end.
#ifndef HOUSEHOLD_SIMULATOR_REPORT_H
#define HOUSEHOLD_SIMULATOR_REPORT_H

#include "tools/household_simulator/outcome.h"
#include "tools/household_simulator/plan.h"

// Lines of the timeline.
void tell_outcome(const scenario &household, const outcome &one);
void tell_event(const scenario &household, const household_event &event);
void tell_new_app(const scenario &household, const step &action);

// Prints who used what for how long, the alerts and the payments, each next to what the rules say, and how often each push
// code was seen. True when everything predicted was seen and nothing else.
bool compare(const scenario &household, const std::vector<outcome> &predicted, const std::vector<outcome> &seen);

#endif
