#include "appident/model/rule_list.h"

#include "appident/model/bounded_text.h"
#include "common/counters.h"

#include <stdio.h>
#include <stdlib.h>

void add_rule_record(app_ident_record *app, app_data *ad)
{
    if (!app || !ad)
        return;
    int kept = 0;
    list_for_each(node, &app->rule_list_head) {
        if (list_entry(node, rule_record, node)->rule_id == ad->ruleid)
            return;
        kept++;
    }
    if (kept >= rules_per_session) {
        count(counter_rules_not_kept);
        return;
    }
    auto *rule = static_cast<rule_record *>(malloc(sizeof(rule_record)));
    if (!rule) {
        count(counter_no_memory);
        return;
    }
    *rule = {};
    rule->rule_id = ad->ruleid;
    rule->appid = ad->appid;
    rule->upper_limit = ad->upperlimit;
    list_add_tail(&rule->node, &app->rule_list_head);
}

char *get_hit_ruleids(app_ident_record *app, char *buf, int len)
{
    if (!buf || len <= 0)
        return buf;
    bounded_text list = make_bounded_text(buf, static_cast<size_t>(len));
    if (!app)
        return buf;
    list_for_each(node, &app->rule_list_head) {
        char piece[20];
        snprintf(piece, sizeof(piece), list.used > 0 ? ",%u" : "%u", list_entry(node, rule_record, node)->rule_id);
        append_whole(list, piece);
    }
    return buf;
}
