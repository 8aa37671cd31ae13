// The inspection rules that matched an app in its current session. The lock is held.
#ifndef APPIDENT_MODEL_RULE_LIST_H
#define APPIDENT_MODEL_RULE_LIST_H

#include "appident/model/records.h"
#include "common/sec_plg_common.h"

// More are counted and not kept: a dump's line holds no more, and the list is walked with each hit.
constexpr int rules_per_session = 1024;

// Notes the hit's rule id unless it is already there; a rule that finds no memory is skipped.
void add_rule_record(app_ident_record *app, app_data *ad);
// The rule ids as "1,2,3" in buf, oldest first, whole ids only; "" for none. Returns buf.
char *get_hit_ruleids(app_ident_record *app, char *buf, int len);

#endif
