// The tracking records: devices, their apps, limits and payment watches, and the list that holds them.
//
// Every record reachable from device_apps_head is read and changed with device_apps_mtx held, and only so. Times are epoch
// seconds, periods and sums whole started minutes, unless said otherwise. A device record is about 29 KB: it is passed by
// reference and never copied to the stack.
#ifndef APPIDENT_MODEL_RECORDS_H
#define APPIDENT_MODEL_RECORDS_H

#include "igd/igd_types.h"
#include "linux_list.h"

#include <atomic>
#include <pthread.h>

enum APP_STATE : u32 {
    APP_UNUSED = 0, // no session
    APP_HIT = 1,    // known to readers, assigned by nobody
    APP_USING = 2,  // a session is open
    APP_DISUSE = 3, // the last session was closed
};

// The app ids that the inspection engine gives to payment flows.
enum PAYMENT_TYPE : u32 { WECHAT_PAY = 300, ALI_PAY = 301, QQ_PAY = 302, APPLE_PAY = 303 };

constexpr int apps_per_device = 110;
constexpr int limits_per_device = 5;
constexpr int apps_per_limit = 256;
constexpr int payment_types = 4;
constexpr int minutes_in_window = 3;

// Values of device_state.
enum : int { device_listed = -1, device_offline = 0, device_active = 1 };

// One minute of one app.
struct hit_record {
    u32 hit_times;
    u64 up_bytes;
    u64 down_bytes;
};

// An inspection rule that matched in the app's current session.
struct rule_record {
    list_head node;
    u32 rule_id;
    u32 appid; // packed word
    u32 upper_limit;
};

// One app of one device: a plain session, and the time-axis session that at most one app of a device holds at a time.
struct app_ident_record {
    u32 app_id; // 0: free slot
    u32 current_time;
    APP_STATE app_state;
    u32 start_time;
    u32 end_time;
    u32 period_time;
    u32 sum_time;
    APP_STATE time_axis_app_state;
    u32 time_axis_start_time;
    u32 time_axis_end_time;
    u32 time_axis_period_time;
    u32 time_axis_sum_time;
    u32 alert_push_num;
    uint8_t daydayup_alert_push_num;
    u32 move_step; // started minutes at the last step of the window
    hit_record hit_records[minutes_in_window];
    u64 up_bytes; // since the time-axis session started
    u64 down_bytes;
    list_head rule_list_head;
};

struct app_id_st {
    u32 app_id;
    u32 checked;
};

// One use-time limit; use_time in minutes.
struct use_time_limit {
    u32 class_type;
    u32 app_id_num;
    app_id_st app_ids[apps_per_limit];
    u32 use_time;
    uint8_t onoff;
    u32 alert_push_num;
};

// A payment rule seen lately.
struct pay_rule_record {
    list_head node;
    u32 rule_id;
    u32 appid; // packed word
    u32 hit_time;
};

// The watch over one payment type.
struct payment_set {
    PAYMENT_TYPE pay_type;
    u32 app_id;
    uint8_t onoff;
    list_head pay_rule_list_head;
    u32 last_alert_time;
};

struct device_record {
    int32_t device_state;
    char mac[20]; // MAC text, the key
    unsigned char mac_bytes[6];
    char ip[16];
    int32_t role;
    u32 delay_push_appid; // 0: no delayed push pending
    u32 delay_push_period_time;
    u32 delay_push_accur_time; // uptime second at which it was armed
    u32 delay_push_rand_time;  // minute of the hour in which it goes out
    u64 delay_push_up_bytes;
    u64 delay_push_down_bytes;
    u32 utl_num; // 0: configuration not loaded
    use_time_limit utl[limits_per_device];
    uint8_t payment_onoff;
    payment_set pay_sets[payment_types];
    app_ident_record apps[apps_per_device];
    list_head node;
};

// Declared for the push queue, which stays empty: pushes go out at once.
struct push_msg_data {
    list_head node;
    char *data;
    int type;
    unsigned long occur_time;
};

extern list_head device_apps_head;
extern pthread_mutex_t device_apps_mtx;
extern list_head push_msg_head;
extern u32 App_store_pay_time, weChat_red_pay_time;
// Counted by the event loop without the lock, read by the periodic thread.
extern std::atomic<u32> wechatPay_hit_cnt, wechatPay_hit_time;
extern std::atomic<uint8_t> wechatPay_push_flag;

inline device_record *device_of(list_head *node)
{
    return list_entry(node, device_record, node);
}

// Puts a new record into its first state: listed, no limits, no sessions, no delayed push. Leaves mac, mac_bytes, ip, role,
// payment_onoff, pay_sets and the daydayup counters alone.
void init_device_app(device_record *rec);
// A record of its own, not linked yet: zeroed, in its first state, with the MAC text (19 characters at most) and four empty,
// switched-off payment sets. Null when there is no memory. free_device_record or free() gives it back.
device_record *allocate_device_record(const char *mac_str);
// Frees an unlinked record with everything that it holds.
void free_device_record(device_record *rec);

// Unlinks and frees every element; a null head is ignored.
void clear_rule_list(list_head *head);
void clear_payment_rule_list(list_head *head);

// Wall clock, epoch seconds.
u32 wall_clock(void);
// Started minutes from start to now: ceil(seconds / 60), 0 when start is not before now.
u32 started_minutes(u32 start, u32 now);

#endif
