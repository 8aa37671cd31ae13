// What a household gets to see: predicted from a scenario, or observed from the daemon.
#ifndef SIMULATOR_OUTCOME_H
#define SIMULATOR_OUTCOME_H

#include "simulator/scenario.h"

enum outcome_kind {
    outcome_online,
    outcome_offline,
    outcome_history,
    outcome_late_history, // of a session that the end of the day cut
    outcome_addiction,
    outcome_eye_protection,
    outcome_daydayup,
    outcome_payment,
    outcome_answer, // to a question over the request socket; subject 0: nothing
    outcome_using,  // the minute's list; comes by the clock and is not predicted
    outcome_kinds
};

struct outcome {
    outcome_kind kind;
    int device;
    u32 subject; // app, limit class (addiction) or pay code (payment)
    u32 amount;  // minutes; of an alert, those that it stands for
    moment at;   // when it was seen, or is expected
    moment from; // start of the session, where there is one
};

// The push code that brings it, 0 for an answer.
constexpr int push_codes[outcome_kinds] = {1023, 1023, 1008, 1008, 1015, 1021, 1022, 1012, 0, 1023};

#endif
