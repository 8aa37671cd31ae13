#include "appident/tracking/app_hits.h"

#include "appident/model/app_slots.h"
#include "appident/model/device_list.h"
#include "appident/model/rule_list.h"
#include "appident/pushes/payment.h"
#include "appident/pushes/push_alerts.h"
#include "appident/pushes/push_presence.h"
#include "appident/tracking/device_registry.h"
#include "appident/tracking/sessions.h"
#include "common/accounting_format.h"
#include "common/address_text.h"
#include "common/counters.h"
#include "common/guards.h"
#include "common/log.h"
#include "igd/igd_lib.h"

#include <sys/time.h>
#include <time.h>

namespace {

// The app whose behaviour is reported as status 2.
constexpr u32 behavior_app = 8;
constexpr u32 game_class = 1;
constexpr u32 pay_window = 60; // seconds

bool is_payment_flow(u32 app_id)
{
    return app_id == WECHAT_PAY || app_id == ALI_PAY || app_id == QQ_PAY;
}

// Two WeChat flows within the window arm one WeChat alert; the others only must not become apps. Without the lock: this thread
// alone writes, but for the flag.
void count_payment_flow(u32 app_id)
{
    if (app_id != WECHAT_PAY)
        return;
    u32 now = wall_clock();
    if (now - wechatPay_hit_time > pay_window) {
        wechatPay_hit_cnt = 0;
        wechatPay_push_flag = 0;
        wechatPay_hit_time = now;
    }
    u32 hits = ++wechatPay_hit_cnt;
    url_check_log(0, "[appident] pay appid :%d  count:%d  ", static_cast<int>(app_id), static_cast<int>(hits));
    if (hits > 1) {
        wechatPay_push_flag = 1;
        wechatPay_hit_cnt = 0;
        wechatPay_hit_time = now;
    }
    url_check_log(0, "[appident] wechatPay_push_flag:%d", wechatPay_push_flag.load());
}

// The local year is past 1970. The calendar is asked only within a day of the threshold: with TZ unset it stats a file each
// time, which would cost as much as receiving the message.
bool clock_is_set(time_t now)
{
    constexpr time_t day = 86400;
    constexpr time_t year_1971 = 365 * day;
    if (now >= year_1971 + day)
        return true;
    tm local;
    return now > year_1971 - day && localtime_r(&now, &local) && local.tm_year > 70;
}

void report_behavior(device_record *dev, app_ident_record *app, const app_data *ad)
{
    if (app->app_id == behavior_app && word_behavior(ad->appid) != 0)
        notify_app_status(dev, app, app_status_behavior);
}

void close_other_time_axes(device_record *dev, int slot, closing why)
{
    for (int other = 0; other < apps_per_device; other++) {
        if (other != slot && dev->apps[other].time_axis_app_state == APP_USING)
            close_time_axis(dev, other, why);
    }
}

void count_bytes(app_ident_record *app, const app_data *ad)
{
    app->up_bytes += ad->req_bytes;
    app->down_bytes += ad->rep_bytes;
}

void announce_session(device_record *dev, app_ident_record *app, app_data *ad)
{
    notify_app_status(dev, app, app_status_started);
    report_behavior(dev, app, ad);
    add_rule_record(app, ad);
}

void open_new_app(device_record *dev, int slot, app_data *ad)
{
    app_ident_record *app = &dev->apps[slot];
    app->app_id = word_app_id(ad->appid);
    note_app_slot(dev, slot);
    app->app_state = APP_UNUSED;
    open_sessions(*app, *ad, wall_clock());
    push_online_app(*dev, slot);
    close_other_time_axes(dev, slot, closing::new_app);
    announce_session(dev, app, ad);
}

// A record in APP_HIT, a state that nothing assigns, opens no session, but counts as the app's start for everybody else.
void reopen_app(device_record *dev, int slot, app_data *ad)
{
    app_ident_record *app = &dev->apps[slot];
    if (app->app_state == APP_DISUSE || app->app_state == APP_UNUSED) {
        open_sessions(*app, *ad, wall_clock());
        app->up_bytes = ad->req_bytes;
        app->down_bytes = ad->rep_bytes;
        push_online_app(*dev, slot);
    }
    close_other_time_axes(dev, slot, closing::reopened_app);
    announce_session(dev, app, ad);
}

void continue_app(device_record *dev, int slot, app_data *ad)
{
    app_ident_record *app = &dev->apps[slot];
    if (app->time_axis_app_state == APP_UNUSED && find_time_axis_holder(dev, slot) < 0) {
        take_time_axis(*app, axis_taken::free_axis, wall_clock());
        notify_app_status(dev, app, app_status_started);
        push_online_app(*dev, slot);
    }
    count_bytes(app, ad);
    add_app_hit_record(app, ad);
    add_rule_record(app, ad);
}

// A game takes the time axis from an app that is none; nobody else takes it from anybody.
void contest_time_axis(device_record *dev, int slot, int holder)
{
    app_ident_record *app = &dev->apps[slot];
    if (!appid_is_game(dev, app->app_id) || appid_is_game(dev, dev->apps[holder].app_id))
        return;
    url_check_log(0, "[appident] game : %d", static_cast<int>(app->app_id));
    if (app->time_axis_app_state != APP_UNUSED)
        return;
    close_time_axis(dev, holder, closing::game);
    take_time_axis(*app, axis_taken::from_non_game, wall_clock());
    push_online_app(*dev, slot);
}

// A starting hit of an app whose session is open.
void restart_app(device_record *dev, int slot, app_data *ad)
{
    app_ident_record *app = &dev->apps[slot];
    // Who else holds the axis matters to an app that has it only when that app is a game.
    bool contested = app->time_axis_app_state == APP_UNUSED || appid_is_game(dev, app->app_id);
    int holder = contested ? find_time_axis_holder(dev, slot) : -1;
    if (holder >= 0) {
        contest_time_axis(dev, slot, holder);
    } else if (app->time_axis_app_state == APP_UNUSED) {
        take_time_axis(*app, axis_taken::free_axis, wall_clock());
        push_online_app(*dev, slot);
        notify_app_status(dev, app, app_status_started);
    }
    count_bytes(app, ad);
    add_app_hit_record(app, ad);
    report_behavior(dev, app, ad);
    add_rule_record(app, ad);
}

void track_hit(const unsigned char *mac, u32 address, app_data *ad, u32 now)
{
    mutex_guard locked(device_apps_mtx);
    device_record *dev = tracked_device(mac);
    if (!dev) {
        count(counter_hits_unknown_device);
        return;
    }
    if (dev->device_state == device_listed) {
        unsigned char mac_bytes[6] = {};
        get_mac_by_ip(address, mac_bytes);
        activate_device(dev, ad->req_src_ip, mac_bytes);
    } else if (dev->device_state == device_offline) {
        activate_device(dev, ad->req_src_ip, dev->mac_bytes);
    }
    count(counter_hits_tracked);
    set_counter(counter_last_hit_time, now);
    add_app_record(dev, ad);
}

} // namespace

void handle_app_ident_event(app_data *ad)
{
    if (!ad)
        return;
    u32 app_id = word_app_id(ad->appid);
    if (word_vendor(ad->appid) != our_vendor || app_id == 0) {
        count(counter_hits_foreign);
        return;
    }
    if (is_payment_flow(app_id)) {
        count(counter_hits_payment_flow);
        count_payment_flow(app_id);
        return;
    }
    u32 address = read_address_text(ad->req_src_ip);
    unsigned char mac[6] = {};
    if (get_mac_by_ip(address, mac) != 0) {
        count(counter_hits_unknown_mac);
        return;
    }
    timeval now = {};
    gettimeofday(&now, nullptr);
    if (!clock_is_set(now.tv_sec)) {
        count(counter_hits_clock_unset);
        return;
    }
    track_hit(mac, address, ad, static_cast<u32>(now.tv_sec));
}

void add_app_record(device_record *dev, app_data *ad)
{
    if (!dev || !ad)
        return;
    u32 app_id = word_app_id(ad->appid);
    if (app_id == 0)
        return;
    if (app_id == APPLE_PAY) {
        // The plain id and not the packed word: so the pair of rules is logged and never becomes an alert, as it must be.
        App_store_pay(dev, APPLE_PAY, ad->ruleid);
        return;
    }
    bool starting = (ad->ruleid & start_mark) != 0;
    int free_slot = -1;
    int slot = find_app_slot(dev, app_id, &free_slot);
    if (slot < 0) {
        if (starting && free_slot >= 0)
            open_new_app(dev, free_slot, ad);
        else if (starting)
            count(counter_app_table_full);
        return;
    }
    bool open = dev->apps[slot].app_state == APP_USING;
    if (!starting && open)
        continue_app(dev, slot, ad);
    else if (starting && open)
        restart_app(dev, slot, ad);
    else if (starting)
        reopen_app(dev, slot, ad);
}

int appid_is_game(device_record *dev, u32 app_id)
{
    for (u32 i = 0; i < dev->utl_num && i < limits_per_device; i++) {
        if (dev->utl[i].class_type == game_class)
            return app_in_limit_array(app_id, &dev->utl[i]);
    }
    return 0;
}
