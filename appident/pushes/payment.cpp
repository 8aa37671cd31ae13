#include "appident/pushes/payment.h"

#include "appident/model/bounded_text.h"
#include "appident/model/payment_types.h"
#include "appident/pushes/push_channel.h"
#include "common/accounting_format.h"
#include "common/counters.h"
#include "common/log.h"

#include <stdio.h>
#include <stdlib.h>

namespace {

constexpr u32 rule_lifetime = 30;  // seconds for which a rule hit counts
constexpr u32 quiet_time = 20;     // seconds after an alert without another one of that type
constexpr u32 two_step_window = 5; // seconds from the first rule of a pair to the second
constexpr size_t rule_text_size = 1024;

constexpr bool is_major_rule(u32 rule_id)
{
    return (rule_id & start_mark) != 0;
}

// How many rule hits make the payment that a major rule belongs to.
constexpr u32 hits_needed(u32 rule_id)
{
    return (rule_id >> 16) & 0xFFu;
}

struct payment_evidence {
    u32 count;
    u32 needed; // of the first major rule that has such a number; 0 when none has
    bool assist;
    char rules[rule_text_size]; // "1,2,3", oldest first
};

void collect_evidence(payment_set &set, payment_evidence &found)
{
    found.count = found.needed = 0;
    found.assist = false;
    bounded_text rules = make_bounded_text(found.rules, sizeof(found.rules));
    list_for_each(node, &set.pay_rule_list_head) {
        u32 rule_id = list_entry(node, pay_rule_record, node)->rule_id;
        char piece[20];
        snprintf(piece, sizeof(piece), "%u,", rule_id);
        append_whole(rules, piece);
        ++found.count;
        if (!is_major_rule(rule_id)) {
            found.assist = true;
            continue;
        }
        if (found.needed == 0)
            found.needed = hits_needed(rule_id);
    }
    drop_last_character(rules);
}

bool is_payment(const payment_evidence &found)
{
    if (found.count == 0 || found.count < found.needed)
        return false;
    return found.needed == 1 || (found.needed >= 2 && found.assist);
}

void add_pay_code(cJSON *object, u32 app_id)
{
    for (const payment_type_row &type : payment_type_rows) {
        if (type.app_id == app_id) {
            add_u32(object, "paytype", type.pay_code);
            return;
        }
    }
    add_text(object, "paytype", "");
}

void send_pay_alert(const device_record *dev, const payment_set &set, const char *rules, u32 now)
{
    push_object(
        push_code_payment, *dev, 0,
        [&](cJSON *object) {
            add_u32(object, "role", static_cast<u32>(shown_role(dev->mac)));
            if (set.app_id == WECHAT_PAY)
                wechatPay_push_flag = 0;
            add_pay_code(object, set.app_id);
            add_text(object, "ruleid", rules);
            add_u32(object, "timestamp", now);
        },
        [&](const char *alias, const char *text, int result) {
            url_check_log(0, "[appident] push_pay_alert -> [1012], [%s] [%s] app_id = %u\n\t%s ret = %d", dev->mac, alias,
                          set.app_id, text, result);
        });
}

void check_set(const device_record *dev, payment_set &set)
{
    if (set.app_id == WECHAT_PAY && wechatPay_push_flag == 0)
        return;
    if (set.onoff != 1)
        return;
    payment_evidence found;
    collect_evidence(set, found);
    if (!is_payment(found))
        return;
    u32 now = wall_clock();
    if (now - set.last_alert_time > quiet_time) {
        send_pay_alert(dev, set, found.rules, now);
        set.last_alert_time = wall_clock();
    }
    clear_payment_rule_list(&set.pay_rule_list_head);
}

// A purchase is seen as two rules, one after the other. Without the first rule the stamp is 0, and the second comes too late.
struct two_step_rules {
    u32 first;
    u32 second;
};
constexpr two_step_rules app_store_rules = {303001, 303002};
constexpr two_step_rules red_packet_rules = {304001, 304002};

void check_two_steps(const two_step_rules &rules, u32 &stamp, device_record *dev, u32 appid, u32 ruleid)
{
    if (ruleid == rules.first)
        stamp = wall_clock();
    if (ruleid != rules.second)
        return;
    // The App Store's caller passes a plain id where add_app_payment_record reads a packed word, so that this pair of rules
    // matches no payment set and never becomes an alert. That is required: a purchase in the App Store is only logged.
    if (wall_clock() - stamp <= two_step_window)
        add_app_payment_record(dev, appid, ruleid);
    stamp = 0;
}

} // namespace

void add_app_payment_rule_record(payment_set *set, u32 appid, u32 ruleid)
{
    list_for_each(node, &set->pay_rule_list_head) {
        auto *known = list_entry(node, pay_rule_record, node);
        if (known->rule_id == ruleid) {
            known->hit_time = wall_clock();
            return;
        }
    }
    auto *rule = static_cast<pay_rule_record *>(malloc(sizeof(pay_rule_record)));
    if (!rule) {
        count(counter_no_memory);
        return;
    }
    *rule = {};
    rule->rule_id = ruleid;
    rule->appid = appid;
    rule->hit_time = wall_clock();
    list_add_tail(&rule->node, &set->pay_rule_list_head);
}

void add_app_payment_record(device_record *dev, u32 appid, u32 ruleid)
{
    if (!dev || dev->payment_onoff == 0)
        return;
    url_check_log(0, "[appident] [%s] add_app_payment_record -> ok", dev->mac);
    for (payment_set &set : dev->pay_sets) {
        if (set.app_id == word_app_id(appid) && set.onoff == 1) {
            add_app_payment_rule_record(&set, appid, ruleid);
            return;
        }
    }
}

void App_store_pay(device_record *dev, u32 appid, u32 ruleid)
{
    if (ruleid == app_store_rules.first || ruleid == app_store_rules.second)
        url_check_log(0, "[appident] App_store_pay hit:%d", static_cast<int>(ruleid));
    check_two_steps(app_store_rules, App_store_pay_time, dev, appid, ruleid);
}

void weChat_red_pay(device_record *dev, u32 appid, u32 ruleid)
{
    // The first step is not logged: readers of the log expect one line for each red packet.
    if (ruleid == red_packet_rules.second)
        url_check_log(0, "[appident] weChat_red_pay hit:%d", static_cast<int>(ruleid));
    check_two_steps(red_packet_rules, weChat_red_pay_time, dev, appid, ruleid);
}

int clear_timeout_payment_rules(device_record *dev)
{
    u32 now = wall_clock();
    for (payment_set &set : dev->pay_sets) {
        if (set.onoff != 1)
            continue;
        list_for_each_safe(node, next, &set.pay_rule_list_head) {
            auto *rule = list_entry(node, pay_rule_record, node);
            if (now - rule->hit_time <= rule_lifetime)
                continue;
            url_check_log(0, "[appident] [%s] clear_timeout_payment_rules -> delete appid = %d, ruleid = %d", dev->mac,
                          static_cast<int>(rule->appid), static_cast<int>(rule->rule_id));
            list_del(node);
            free(rule);
        }
    }
    return 0;
}

int push_pay_alert(device_record *dev)
{
    if (!dev || dev->payment_onoff == 0)
        return 0;
    clear_timeout_payment_rules(dev);
    for (payment_set &set : dev->pay_sets)
        check_set(dev, set);
    return 0;
}
