#include "appident/model/records.h"

#include <stdlib.h>
#include <string.h>
#include <time.h>

list_head device_apps_head = {&device_apps_head, &device_apps_head};
pthread_mutex_t device_apps_mtx = PTHREAD_MUTEX_INITIALIZER;
list_head push_msg_head = {&push_msg_head, &push_msg_head};
u32 App_store_pay_time = 0, weChat_red_pay_time = 0;
std::atomic<u32> wechatPay_hit_cnt{0}, wechatPay_hit_time{0};
std::atomic<uint8_t> wechatPay_push_flag{0};

static_assert(sizeof(device_record) < 32 * 1024, "a device record stays about 29 KB");

namespace {

template <typename record> void free_list(list_head *head)
{
    if (!head || !head->next) // a record that was only zeroed has no list yet
        return;
    list_for_each_safe(node, next, head)
        free(list_entry(node, record, node));
    INIT_LIST_HEAD(head);
}

void init_app(app_ident_record &app)
{
    // The daydayup counter is left to whoever opens the first session.
    uint8_t kept = app.daydayup_alert_push_num;
    app = app_ident_record{};
    app.daydayup_alert_push_num = kept;
    INIT_LIST_HEAD(&app.rule_list_head);
}

} // namespace

void init_device_app(device_record *rec)
{
    rec->device_state = device_listed;
    rec->utl_num = 0;
    rec->delay_push_appid = 0;
    rec->delay_push_period_time = 0;
    rec->delay_push_accur_time = 0;
    rec->delay_push_rand_time = 0;
    rec->delay_push_up_bytes = 0;
    rec->delay_push_down_bytes = 0;
    memset(rec->utl, 0, sizeof(rec->utl));
    for (app_ident_record &app : rec->apps)
        init_app(app);
}

device_record *allocate_device_record(const char *mac_str)
{
    auto *rec = static_cast<device_record *>(malloc(sizeof(device_record)));
    if (!rec)
        return nullptr;
    // Else the compiler makes one calloc of the two, and a firmware that replaces malloc would not be asked.
    __asm__("" : "+r"(rec));
    memset(static_cast<void *>(rec), 0, sizeof(*rec));
    init_device_app(rec);
    strncpy(rec->mac, mac_str, sizeof(rec->mac) - 1);
    u32 type = WECHAT_PAY;
    for (payment_set &set : rec->pay_sets) {
        set.pay_type = static_cast<PAYMENT_TYPE>(type);
        set.app_id = type++;
        INIT_LIST_HEAD(&set.pay_rule_list_head);
    }
    return rec;
}

void free_device_record(device_record *rec)
{
    for (app_ident_record &app : rec->apps)
        clear_rule_list(&app.rule_list_head);
    for (payment_set &set : rec->pay_sets)
        clear_payment_rule_list(&set.pay_rule_list_head);
    free(rec);
}

void clear_rule_list(list_head *head)
{
    free_list<rule_record>(head);
}

void clear_payment_rule_list(list_head *head)
{
    free_list<pay_rule_record>(head);
}

u32 wall_clock(void)
{
    return static_cast<u32>(time(nullptr));
}

u32 started_minutes(u32 start, u32 now)
{
    return now > start ? (now - start - 1) / 60 + 1 : 0;
}
