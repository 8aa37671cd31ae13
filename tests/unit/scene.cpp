#include "tests/unit/scene.h"

#include <arpa/inet.h>

memory_script memory;

// Linked so that malloc, calloc and realloc of the daemon's objects come here first.
extern "C" {
void *__real_malloc(size_t size);
void *__real_calloc(size_t count, size_t size);
void *__real_realloc(void *memory, size_t size);

static bool refused()
{
    return memory.counting && ++memory.reached >= memory.first && memory.reached < memory.end;
}
void *__wrap_malloc(size_t size)
{
    memory.records += size == sizeof(device_record);
    return refused() ? nullptr : __real_malloc(size);
}
void *__wrap_calloc(size_t count, size_t size)
{
    return refused() ? nullptr : __real_calloc(count, size);
}
void *__wrap_realloc(void *old, size_t size)
{
    return refused() ? nullptr : __real_realloc(old, size);
}
}

namespace {

void expect_sound(list_head &list)
{
    list_for_each(node, &list)
        ASSERT_TRUE(node->next->prev == node && node->prev->next == node);
}

void expect_sound_lists()
{
    expect_sound(device_apps_head);
    list_for_each(node, &device_apps_head) {
        for (app_ident_record &app : device_of(node)->apps)
            expect_sound(app.rule_list_head);
        for (payment_set &set : device_of(node)->pay_sets)
            expect_sound(set.pay_rule_list_head);
    }
}

} // namespace

void scene::happens(const std::string &what, const std::function<void()> &step)
{
    memory.counting = true;
    step();
    memory.counting = false;
    EXPECT_FALSE(lock_is_held());
    expect_sound_lists();
    if (tells != nothing)
        tell(what);
}

void scene::before(const std::function<void()> &steps)
{
    const unsigned told_later = std::exchange(tells, nothing);
    steps();
    tells = told_later;
    if (tells == nothing)
        return;
    const std::string so_far = told.str();
    tell("");
    told.str(so_far);
    told.seekp(0, std::ios::end);
}

void scene::comes(u32 app, u32 rule, const lan_device &device)
{
    happens("app " + std::to_string(app) + " rule " + std::to_string(rule),
            [&] { feed_traffic(accounting_message(app_word(app, rule & 0xFF), rule, device.ip, 1, 2)); });
}

void scene::router_says(const std::string &what, const std::string &message)
{
    happens(what, [&] { feed_router(message); });
}

void scene::pays(const std::string &what, u32 app, u32 rule)
{
    router_says(what, app_message(0, app_word(app), rule, tablet.mac, inet_addr(tablet.ip)));
}

void scene::passes(u32 count, u32 seconds)
{
    for (u32 i = 0; i < count; i++) {
        set_clock(clock_now() + seconds);
        platform.uptime += seconds;
        happens("pass", [&] { tick(); });
    }
}

void scene::uses(u32 app, u32 minutes, const lan_device &device)
{
    for (u32 i = 0; i < minutes; i++) {
        comes(app, 70 + i, device);
        passes(1);
    }
}

void scene::asks(unsigned int id, std::string text)
{
    std::string mac = id == 8 || id == 9 ? json("{'device':['@']}") : tablet.mac;
    unsigned int capacity = 2000;
    appident_payment_notify_st switches{"02-00-00-00-00-0A", 1, 1, 1, 1, 1};
    text.resize(capacity);
    void *pa = id >= 13 ? static_cast<void *>(&switches) : text.data();
    void *pb = id >= 13 ? reinterpret_cast<void *>(uintptr_t{1}) : mac.data();
    int result = 0;
    happens("request " + std::to_string(id), [&] { result = cgi_event_handler(id, pa, pb, &capacity); });
    if (tells != nothing)
        told << "  answers " << result << " " << (id < 13 ? text.c_str() : "") << "\n";
}

void scene::tell(const std::string &what)
{
    const u32 second = static_cast<u32>(clock_now()) % 86400;
    char at[10];
    snprintf(at, sizeof at, "%02u:%02u:%02u", second / 3600, second / 60 % 60, second % 60);
    told << at << " " << what << "\n";
    tell_log();
    tell_asked();
    for (const std::string &line : sent())
        told << "  sends " << line << "\n";
    tell_records();
}

namespace {

// Without the minute that was drawn and the directory of this run.
std::string lasting(std::string line)
{
    if (size_t drawn = line.find("rand_time:"); drawn != std::string::npos)
        line.replace(drawn, std::string::npos, "*");
    if (size_t path = line.find(platform.config_dir); path != std::string::npos)
        line.replace(path, platform.config_dir.size(), "*");
    return line;
}

} // namespace

void scene::tell_log()
{
    int dumped = 0;
    bool inside = false; // of a dump
    for (const std::string &line : logged()) {
        inside = inside || line.rfind("[appident] ====", 0) == 0;
        if (inside && (line.empty() || line[0] != '[') && (tells & dumps) == 0)
            dumped++;
        else
            told << "  " << lasting(line) << "\n";
        inside = inside && line.rfind("list count", 0) != 0;
    }
    if (dumped > 0)
        told << "  dumps " << dumped << " lines\n";
}

void scene::tell_asked()
{
    int roles = 0;
    for (const std::string &line : asked())
        if ((tells & role_look_ups) == 0 && line.find("?mac=") != std::string::npos)
            roles++;
        else
            told << "  asks " << line << "\n";
    if (roles > 0)
        told << "  asks for a role, " << roles << " times\n";
}

namespace {

// "using 3/2 0..- axis 2/1 20..- bytes 100/1000 hits 1 0 2 at 40 step 2 told 0/0 rules 7,8": state, period/sum and seconds of
// the evening from its start to its end, whether on the time axis, the same of that, bytes up/down, window, last hit, minutes
// stepped, alerts of rest and of learning.
std::string text_of(app_ident_record &use)
{
    static const char *const states[] = {"unused", "hit", "using", "disuse"};
    auto moment = [](u32 at) { return at == 0 ? "-" : std::to_string(static_cast<int>(at - evening)); };
    std::ostringstream text;
    text << states[use.app_state] << " " << use.period_time << "/" << use.sum_time << " " << moment(use.start_time) << ".."
         << moment(use.end_time) << (use.time_axis_app_state == APP_USING ? " axis " : " off ") << use.time_axis_period_time
         << "/" << use.time_axis_sum_time << " " << moment(use.time_axis_start_time) << ".." << moment(use.time_axis_end_time)
         << " bytes " << use.up_bytes << "/" << use.down_bytes << " hits";
    for (const hit_record &minute : use.hit_records)
        text << " " << minute.hit_times;
    char rules[257];
    text << " at " << moment(use.current_time) << " step " << use.move_step << " told " << use.alert_push_num << "/"
         << int{use.daydayup_alert_push_num} << " rules " << get_hit_ruleids(&use, rules, sizeof rules);
    return text.str();
}

std::string text_of(device_record &dev)
{
    std::ostringstream text;
    text << "state " << dev.device_state << " ip " << dev.ip << " later " << dev.delay_push_appid << " "
         << dev.delay_push_period_time << " " << dev.delay_push_accur_time << " " << dev.delay_push_up_bytes << "/"
         << dev.delay_push_down_bytes << " limits " << dev.utl_num;
    for (const use_time_limit &limit : dev.utl)
        text << " " << limit.class_type << ":" << limit.app_id_num << ":" << limit.alert_push_num;
    text << " pay " << int{dev.payment_onoff};
    for (payment_set &set : dev.pay_sets)
        text << " " << int{set.onoff} << (list_empty(&set.pay_rule_list_head) ? "" : "!");
    return text.str();
}

} // namespace

void scene::tell_records()
{
    std::map<std::string, std::string> now;
    list_for_each(node, &device_apps_head) {
        device_record &dev = *device_of(node);
        now[dev.mac] = text_of(dev);
        for (app_ident_record &use : dev.apps)
            if (use.app_id != 0)
                now[dev.mac + std::string(" app ") + std::to_string(use.app_id)] = text_of(use);
    }
    for (const auto &[who, how] : now)
        if (records[who] != how)
            told << "  has " << who << " " << how << "\n";
    for (const auto &[who, how] : records)
        if (!how.empty() && now.count(who) == 0)
            told << "  has no longer " << who << "\n";
    records = now;
}
