// A day's scenario in which every allocation of the daemon and of its JSON library fails once: the first, the second, and so on
// to the last one reached. Linked so that malloc, calloc and realloc of the daemon's objects come here first.
#include "tests/support/config_files.h"

#include <arpa/inet.h>
#include <cjson/cJSON.h>

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
         "'use_time':1,'appid':[9]}]}");

struct day : household {
    void TestBody() override {}

    // One thing that happens to the daemon.
    template <typename body> void happens(body step)
    {
        counting = true;
        step();
        counting = false;
        EXPECT_FALSE(lock_is_held());
        expect_sound_lists();
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

    void comes(const std::string &datagram)
    {
        happens([&] { feed_traffic(datagram); });
    }
    void comes_from_router(const std::string &message)
    {
        happens([&] { feed_router(message); });
    }
    void passes(u32 minutes)
    {
        for (u32 i = 0; i < minutes; i++) {
            set_clock(clock_now() + 60);
            happens([&] { tick(); });
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
        happens([&] { cgi_event_handler(id, pa, pb, &room); });
    }

    void play()
    {
        platform.answers[catalogue_path] = json("{'err_no':'0','data':[{'class_type':'1','appid':[7,8]}]}");
        know(tablet);
        know(phone);
        happens([] { init_device_app_list(); });
        comes_from_router(host_message(0, tablet.mac));
        asks(11, limits);
        for (u32 app : {7u, 8u, 9u})
            comes(accounting_message(app_word(app, 1), start | app, tablet.ip, 1, 2));
        comes(accounting_message(app_word(300), 1, tablet.ip, 1, 2));
        comes(accounting_message(app_word(300), 1, tablet.ip, 1, 2));
        comes_from_router(app_message(0, app_word(301), 0x10007, tablet.mac, inet_addr(tablet.ip)));
        comes_from_router(app_message(0, app_word(300), 0x10008, phone.mac, inet_addr(phone.ip)));
        passes(1);
        comes(accounting_message(app_word(9), 70, tablet.ip, 1, 2));
        comes(accounting_message(app_word(7), start | 71, tablet.ip, 1, 2));
        passes(2);
        for (unsigned int id : {6u, 7u, 8u, 9u, 12u, 13u, 14u})
            asks(id);
        platform.answers[catalogue_path] = json("{'err_no':'0','data':[{'class_type':'1','appid':[7,8,12]}]}");
        set_clock(evening + 3 * 3600 - 60);
        passes(2); // the day's end, the delayed history, the catalogue
        set_clock(evening);
        passes(1); // the clock stepped back
        comes_from_router(host_message(2, tablet.mac));
    }

    // Memory is back: a new device is tracked and leaves as ever. A message for which there was no buffer still waits before
    // it.
    void goes_on()
    {
        platform.router_messages.clear();
        arrive(laptop);
        for (int i = 0; i < 2 || (failing_until > failing + 1 && i < 20); i++)
            feed_traffic(accounting_message(app_word(7), start, laptop.ip, 1, 2));
        EXPECT_NE(app(7, laptop), nullptr);
        leave(laptop);
        EXPECT_EQ(record(laptop), nullptr);
    }
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

TEST(allocation_failure, the_daemon_outlives_each_one)
{
    cJSON_Hooks hooks = {__wrap_malloc, free};
    cJSON_InitHooks(&hooks);
    const long plenty = live_a_day(1, 0);
    EXPECT_GT(plenty, 1000);
    long n = 1;
    for (; n <= live_a_day(n, 1) && !HasFailure(); n++)
        ;
    EXPECT_GT(n, plenty / 2) << "hardly any failure was survived far enough to reach the next";
    live_a_day(1, 1000000);
    cJSON_InitHooks(nullptr);
}

} // namespace
