// The steps of a scenario in the order in which they happen; the player sends them, the predictor reckons with them.
#ifndef SIMULATOR_PLAN_H
#define SIMULATOR_PLAN_H

#include "simulator/scenario.h"

enum step_kind {
    step_hit,          // an accounting message
    step_payment_rule, // a router message: a payment rule fired
    step_catalogue,    // an app joins the catalogue
    step_event,        // anything else of the household
};

struct step {
    step_kind kind;
    moment at;
    int device;
    u32 app;
    u32 rule; // as on the wire, start mark included
    u32 up, down;
    const household_event *event; // of the scenario, which must outlive the plan
};

std::vector<step> plan_of(const scenario &household);

#endif
