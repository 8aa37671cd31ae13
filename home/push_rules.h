// One rule for each kind of push; joining.cpp calls them. `one` is the push's object, or one of its array; anything may be
// wrong in it.
#ifndef HOME_PUSH_RULES_H
#define HOME_PUSH_RULES_H

#include "home/push_line.h"

using push_rule = void (*)(history *of, const push_line &line, const cJSON *one);

void take_status(history *of, const push_line &line, const cJSON *one);
void take_history(history *of, const push_line &line, const cJSON *one);
void take_payment(history *of, const push_line &line, const cJSON *one);
void take_limit(history *of, const push_line &line, const cJSON *one);
void take_break(history *of, const push_line &line, const cJSON *one);
void take_first_use(history *of, const push_line &line, const cJSON *one);
void take_presence(history *of, const push_line &line, const cJSON *one);

// An app is in use, as "using" and request 9 say it.
struct use_told {
    int64_t device; // row; 0 is passed over
    u32 app;
    int64_t start, minutes;
};
void take_use(history *of, const use_told &told, int64_t time);

#endif
