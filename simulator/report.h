// What the household reads: the timeline as it happens, and the tables at the end.
#ifndef SIMULATOR_REPORT_H
#define SIMULATOR_REPORT_H

#include "simulator/outcome.h"
#include "simulator/plan.h"

// Lines of the timeline.
void tell_outcome(const scenario &household, const outcome &one);
void tell_event(const scenario &household, const household_event &event);
void tell_new_app(const scenario &household, const step &action);

// Prints who used what for how long, the alerts and the payments, each next to what the rules say, and how often each push
// code was seen. True when everything predicted was seen and nothing else.
bool compare(const scenario &household, const std::vector<outcome> &predicted, const std::vector<outcome> &seen);

#endif
