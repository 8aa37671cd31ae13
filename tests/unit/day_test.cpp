// A day in which nearly everything happens. It is told to the letter: what is logged, asked, sent and recorded stands in
// a_day.txt. And it is lived through with each allocation of the daemon and of its JSON library failing once: the first, the
// second, and so on to the last one reached. Linked so that malloc, calloc and realloc of the daemon's objects come here first.
#include "tests/kit/config_files.h"

#include <arpa/inet.h>
#include <cjson/cJSON.h>
#include <regex>

namespace {

bool counting = false;
long reached, failing, failing_until;

bool refuses()
{
    return counting && ++reached >= failing && reached < failing_until;
}

} // namespace

extern "C" {
void *__real_malloc(size_t size);
void *__real_calloc(size_t count, size_t size);
void *__real_realloc(void *memory, size_t size);

void *__wrap_malloc(size_t size)
{
    return refuses() ? nullptr : __real_malloc(size);
}
void *__wrap_calloc(size_t count, size_t size)
{
    return refuses() ? nullptr : __real_calloc(count, size);
}
void *__wrap_realloc(void *memory, size_t size)
{
    return refuses() ? nullptr : __real_realloc(memory, size);
}
}

namespace {

const std::string limits =
    json("{'device':'@','data':[{'class_type':1,'onoff':1,'use_time':1,'appid':[7]},{'class_type':5,'onoff':1,"
         "'use_time':2,'appid':[9]},{'class_type':4,'onoff':1,'use_time':9,'appid':[12]}]}");

struct day : household {
    void TestBody() override {}

    // One thing that happens to the daemon.
    template <typename body> void happens(const std::string &what, body step)
    {
        counting = true;
        step();
        counting = false;
        EXPECT_FALSE(lock_is_held());
        expect_sound_lists();
        if (telling)
            tell(what);
    }

    static void expect_sound(list_head &list)
    {
        list_for_each(node, &list)
            ASSERT_TRUE(node->next->prev == node && node->prev->next == node);
    }
    static void expect_sound_lists()
    {
        expect_sound(device_apps_head);
        list_for_each(node, &device_apps_head) {
            for (app_ident_record &app : device_of(node)->apps)
                expect_sound(app.rule_list_head);
            for (payment_set &set : device_of(node)->pay_sets)
                expect_sound(set.pay_rule_list_head);
        }
    }

    // "using 3/2 0..- axis 2/1 20..- bytes 100/1000 hits 1 0 2 at 40 step 2 told 0/0 rules 7,8": state, period/sum and seconds
    // of the evening from its start to its end, whether on the time axis, the same of that, bytes up/down, window, last hit,
    // minutes stepped, alerts of rest and of learning.
    static std::string text_of(app_ident_record &use)
    {
        static const char *const states[] = {"unused", "hit", "using", "disuse"};
        auto moment = [](u32 at) { return at == 0 ? "-" : std::to_string(static_cast<int>(at - evening)); };
        std::ostringstream text;
        text << states[use.app_state] << " " << use.period_time << "/" << use.sum_time << " " << moment(use.start_time) << ".."
             << moment(use.end_time) << (use.time_axis_app_state == APP_USING ? " axis " : " off ") << use.time_axis_period_time
             << "/" << use.time_axis_sum_time << " " << moment(use.time_axis_start_time) << ".."
             << moment(use.time_axis_end_time) << " bytes " << use.up_bytes << "/" << use.down_bytes << " hits";
        for (const hit_record &minute : use.hit_records)
            text << " " << minute.hit_times;
        char rules[257];
        text << " at " << moment(use.current_time) << " step " << use.move_step << " told " << use.alert_push_num << "/"
             << int{use.daydayup_alert_push_num} << " rules " << get_hit_ruleids(&use, rules, sizeof rules);
        return text.str();
    }

    // What came of it; of the records only those that changed.
    void tell(const std::string &what)
    {
        const u32 second = static_cast<u32>(clock_now()) % 86400;
        char at[10];
        snprintf(at, sizeof at, "%02u:%02u:%02u", second / 3600, second / 60 % 60, second % 60);
        told << at << " " << what << "\n";
        for (const std::string &line : logged())
            told << "  " << std::regex_replace(line, std::regex("rand_time:\\d+|/[^ ]*/"), "*") << "\n";
        for (const std::string &line : asked())
            told << "  asks " << line << "\n";
        for (const std::string &line : sent())
            told << "  sends " << line << "\n";
        std::map<std::string, std::string> now;
        list_for_each(node, &device_apps_head) {
            device_record &dev = *device_of(node);
            std::ostringstream text;
            text << "state " << dev.device_state << " ip " << dev.ip << " later " << dev.delay_push_appid << " "
                 << dev.delay_push_period_time << " " << dev.delay_push_accur_time << " " << dev.delay_push_up_bytes << "/"
                 << dev.delay_push_down_bytes << " limits " << dev.utl_num;
            for (const use_time_limit &limit : dev.utl)
                text << " " << limit.class_type << ":" << limit.app_id_num << ":" << limit.alert_push_num;
            text << " pay " << int{dev.payment_onoff};
            for (payment_set &set : dev.pay_sets)
                text << " " << int{set.onoff} << (list_empty(&set.pay_rule_list_head) ? "" : "!");
            now[dev.mac] = text.str();
            for (app_ident_record &use : dev.apps)
                if (use.app_id != 0)
                    now[dev.mac + std::string(" app ") + std::to_string(use.app_id)] = text_of(use);
        }
        for (const auto &[who, how] : now)
            if (records[who] != how)
                told << "  has " << who << " " << how << "\n";
        records = now;
    }

    // The last byte of the rule is the flow's behavior as well.
    void comes(u32 app, u32 rule, const lan_device &device = tablet)
    {
        happens("app " + std::to_string(app) + " rule " + std::to_string(rule),
                [&] { feed_traffic(accounting_message(app_word(app, rule & 0xFF), rule, device.ip, 1, 2)); });
    }
    void router_says(const std::string &what, const std::string &message)
    {
        happens(what, [&] { feed_router(message); });
    }
    void passes(u32 count, u32 seconds = 60)
    {
        for (u32 i = 0; i < count; i++) {
            set_clock(clock_now() + seconds);
            platform.uptime += seconds;
            happens("pass", [&] { tick(); });
        }
    }
    // Continuing hits, the last one a minute before the end.
    void uses(u32 app, u32 minutes, const lan_device &device = tablet)
    {
        for (u32 i = 0; i < minutes; i++) {
            comes(app, 70 + i, device);
            passes(1);
        }
    }
    void asks(unsigned int id, std::string text = "")
    {
        std::string mac = id == 8 || id == 9 ? json("{'device':['@']}") : tablet.mac;
        unsigned int room = 2000;
        appident_payment_notify_st switches{"02-00-00-00-00-0A", 1, 1, 1, 1, 1};
        text.resize(room);
        void *pa = id >= 13 ? static_cast<void *>(&switches) : text.data();
        void *pb = id >= 13 ? reinterpret_cast<void *>(uintptr_t{1}) : mac.data();
        happens("request " + std::to_string(id), [&] { cgi_event_handler(id, pa, pb, &room); });
        told << "  answers " << (id < 13 ? text.c_str() : "") << "\n";
    }

    // A state that no message makes, with something in every field.
    void leave_odd_record()
    {
        if (app(7) == nullptr) // there was no memory for it
            return;
        app_ident_record &odd = record(tablet)->apps[50];
        odd = *app(7);
        INIT_LIST_HEAD(&odd.rule_list_head);
        odd.app_id = 77;
        odd.app_state = APP_HIT;
        odd.period_time = odd.sum_time = odd.time_axis_period_time = odd.time_axis_sum_time = 3;
        odd.alert_push_num = odd.daydayup_alert_push_num = 1;
        odd.time_axis_end_time = odd.end_time = evening;
    }

    void play()
    {
        platform.answers[catalogue_path] = json("{'err_no':'0','data':[{'class_type':'1','appid':[7,8]}]}");
        know(tablet);
        know(phone, "2");
        know(laptop); // who stays listed, and is never seen
        platform.device(phone.mac).group = -1;
        happens("start", [] { init_device_app_list(); });
        router_says("laptop comes", host_message(0, laptop.mac));
        for (u32 app : {7u, 8u})
            comes(app, start | app);
        asks(11, limits);
        for (u32 app : {7u, 9u, 8u, 12u}) // the first is a game by now
            comes(app, start | app);
        for (u32 behavior : {0x100u, 0xFFu}) // app 8 tells them, but for 0
            comes(8, start | behavior);
        comes(5, start | 5, phone);
        for (u32 gap : {0u, 61u, 0u}) {
            set_clock(clock_now() + gap);
            comes(300, 1);
        }
        router_says("alipay", app_message(0, app_word(301), 0x1010007, tablet.mac, inet_addr(tablet.ip)));
        router_says("wechat", app_message(0, app_word(300), 0x1010008, tablet.mac, inet_addr(tablet.ip)));
        passes(1, 3);
        uses(12, 2);
        comes(7, start | 71);
        comes(7, start | 72); // which has the time axis
        uses(7, 2);
        comes(12, 75); // which has not
        uses(7, 1);
        for (unsigned int id : {6u, 7u, 8u, 9u, 12u, 13u, 14u})
            asks(id);
        platform.failing = {online_devices_path, offline_devices_path};
        passes(4); // silence ends all
        comes(8, start | 8);
        platform.failing = {};
        passes(1);
        comes(8, start | 8);
        comes(12, start | 12);
        platform.answers[catalogue_path] = json("{'err_no':'0','data':[{'class_type':'1','appid':[7,8,12]}]}");
        set_clock(evening + 3 * 3600 - 240);
        passes(1);
        comes(9, start | 9);
        comes(5, start | 5, phone);
        uses(5, 2, phone);
        comes(7, start | 7);
        leave_odd_record();
        uses(5, 1, phone); // the day's end
        router_says("phone goes", host_message(2, phone.mac));
        router_says("phone comes", host_message(0, phone.mac));
        comes(5, start | 5, phone);
        passes(1); // the delayed history
        platform.device(phone.mac).role = "0";
        set_clock(evening + 4 * 3600 - 180);
        comes(5, 6, phone);
        uses(7, 3); // a role is gone, and midnight
        if (device_record *dev = record(tablet))
            dev->delay_push_rand_time = 50; // instead of the minute that was drawn
        comes(12, start | 12);
        uses(12, 3);
        set_clock(evening);
        passes(2); // the clock stepped back
        for (u32 app : {9u, 7u})
            comes(app, start | app);
        uses(7, 3);
        router_says("tablet goes", host_message(2, tablet.mac));
        router_says("tablet goes", host_message(2, tablet.mac));
        router_says("tablet comes", host_message(0, tablet.mac));
        comes(7, start | 7);
        set_clock(clock_now() + 5 * 365 * 86400);
        comes(7, 70); // before a pass has seen the new time: years of use
        passes(4);
    }

    // Memory is back: a new device is tracked and leaves as ever. A message for which there was no buffer still waits before
    // it.
    void goes_on()
    {
        platform.router_messages.clear();
        arrive(laptop);
        for (int i = 0; i < 2 || (failing_until > failing + 1 && i < 60); i++)
            feed_traffic(accounting_message(app_word(7), start, laptop.ip, 1, 2));
        EXPECT_NE(app(7, laptop), nullptr);
        leave(laptop);
        EXPECT_EQ(record(laptop), nullptr);
    }

    bool telling = false;
    std::ostringstream told;
    std::map<std::string, std::string> records;
};

// Returns how many allocations the day asked for.
long live_a_day(long first_refused, long refused)
{
    reached = 0;
    failing = first_refused;
    failing_until = first_refused + refused;
    day today;
    today.play();
    today.goes_on();
    return reached;
}

TEST(a_day, is_told_to_the_letter)
{
    failing = failing_until = 0;
    day today;
    today.telling = true;
    today.play();
    std::ifstream file(A_DAY);
    const std::string as_ever{std::istreambuf_iterator<char>(file), {}}, now = today.told.str();
    if (now != as_ever)
        std::ofstream("a_day.now.txt") << now;
    EXPECT_EQ(now, as_ever) << "a_day.now.txt has it all";
}

TEST(allocation_failure, the_daemon_outlives_each_one)
{
    cJSON_Hooks hooks = {__wrap_malloc, free};
    cJSON_InitHooks(&hooks);
    const long plenty = live_a_day(1, 0);
    EXPECT_GT(plenty, 1000);
    long n = 1;
    for (; n <= live_a_day(n, 1) && !HasFailure(); n += ALLOCATION_STEP)
        ;
    EXPECT_GT(n, plenty / 2) << "hardly any failure was survived far enough to reach the next";
    live_a_day(1, 1000000);
    cJSON_InitHooks(nullptr);
}

} // namespace
