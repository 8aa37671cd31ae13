// What the rules say that a scenario brings: every session's minutes, history, alerts, payments and answers.
#ifndef SIMULATOR_PREDICTOR_H
#define SIMULATOR_PREDICTOR_H

#include "simulator/outcome.h"
#include "simulator/plan.h"

// In the order in which it is expected. `lateness` (seconds) delays every second step, to find out whether anything hangs on
// seconds; a scenario that is predicted differently then is too tight to be compared with a real run.
std::vector<outcome> predict(const scenario &household, const std::vector<step> &plan, int lateness);

// Whether two lists tell the same of each device, times aside.
bool same_outcomes(const std::vector<outcome> &a, const std::vector<outcome> &b);

#endif
