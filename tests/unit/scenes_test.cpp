// Scenes in which nearly everything happens. Each is told to the letter: what is logged, asked, sent and recorded stands in
// scenes/NAME.txt. And each is lived through with each allocation of the daemon and of its JSON library failing once: the
// first, the second, and so on to the last one reached. Run with ACCEPT_SCENES=1, the texts are written instead of compared.
#include "tests/unit/scene.h"

#include <cjson/cJSON.h>

namespace {

const std::string limits =
    json("{'device':'@','data':[{'class_type':1,'onoff':1,'use_time':1,'appid':[7]},{'class_type':5,'onoff':1,"
         "'use_time':2,'appid':[9]},{'class_type':4,'onoff':1,'use_time':9,'appid':[12]}]}");

void catalogue(const std::string &ids)
{
    platform.answers[catalogue_path] = json("{'err_no':'0','data':[{'class_type':'1','appid':[" + ids + "]}]}");
}

void two_devices(scene &s)
{
    catalogue("7,8");
    s.know(tablet);
    s.know(phone, "2");
    platform.device(phone.mac).group = -1;
    s.happens("start", [] { init_device_app_list(); });
}

void starts(scene &s, std::initializer_list<u32> apps, const lan_device &device = tablet)
{
    for (u32 app : apps)
        s.comes(app, start | app, device);
}

void devices_and_roles(scene &s)
{
    s.know(laptop);
    two_devices(s);
    s.router_says("laptop comes", host_message(0, laptop.mac)); // listed already; it is never seen
    starts(s, {7});
    s.comes(5, start | 5, phone);
    s.passes(1, 3);
    for (unsigned int id : {9u, 12u})
        s.asks(id);
    s.before([&] { s.uses(5, 1, phone); });
    platform.failing = {"/app/devices/webs/getdeviceslist.cgi", "/app/devices/webs/get_offline_dev_list.cgi"};
    s.comes(9, start | 9);
    s.passes(1);
    platform.failing = {};
    platform.device(phone.mac).role = "0";
    set_clock(evening + 1150);
    s.comes(5, 70, phone);
    set_clock(evening + 1200);
    s.passes(1, 0); // looks for lost roles
    s.router_says("phone comes", host_message(0, phone.mac));
    platform.device(tablet.mac).online = false;
    s.comes(9, start | 9);
}

void the_time_axis(scene &s)
{
    s.before([&] {
        two_devices(s);
        starts(s, {7, 9});                                                                                 // 9 takes it from 7
        s.asks(11, json("{'device':'@','data':[{'class_type':1,'onoff':1,'use_time':9,'appid':[7,9]}]}")); // two games
    });
    starts(s, {8});
    for (u32 behavior : {0x100u, 0xFFu}) // told by this app, but for 0
        s.comes(8, start | behavior);
    s.before([&] {
        s.passes(1, 3);
        s.uses(8, 1);
    });
    starts(s, {9}); // a game takes it
    s.before([&] {
        s.uses(8, 2);
        s.comes(8, 72);
    });
    s.comes(9, 72);
    s.before([&] { s.uses(8, 3); });
    s.uses(8, 1);      // it is free
    starts(s, {7});    // anybody takes it who is reopened
    starts(s, {9, 7}); // but with both open no game takes it from a game
    s.before([&] {
        s.passes(1, 3);
        s.comes(9, 77);
        s.uses(7, 3);
    });
    starts(s, {7, 9}); // it is free; then 9 is reopened
    s.before([&] { s.passes(3); });
    s.passes(1); // less than a minute of an app wipes what it had
}

void limits_alert(scene &s)
{
    s.before([&] { two_devices(s); });
    s.asks(11, limits);
    starts(s, {12});
    s.before([&] {
        s.passes(1, 3);
        s.uses(12, 1);
    });
    s.uses(12, 2); // rest and learning
    s.before([&] {
        starts(s, {7});
        s.uses(12, 3);
    });
    s.uses(12, 1);
    s.comes(12, 70); // the time axis anew, and the alerts
    s.before([&] {
        s.uses(12, 5);
        s.passes(4);
    });
    starts(s, {12, 7}); // from the beginning
    s.before([&] {
        s.passes(1, 3);
        s.uses(7, 1);
        s.comes(7, 70);
    });
    platform.failing = {"new_push_msg"};
    s.passes(1);
    platform.failing = {};
    platform.device(tablet.mac).role = "2";
    s.uses(7, 1);
}

void payments(scene &s)
{
    s.before([&] {
        two_devices(s);
        s.asks(11, limits);
        starts(s, {5});
    });
    for (u32 gap : {0u, 61u, 60u}) {
        set_clock(clock_now() + gap);
        s.comes(300, 1);
    }
    s.pays("alipay", 301, 0x1010007);
    s.pays("wechat", 300, 0x1010008);
    s.passes(1, 3);
    s.pays("wechat, of which no flow told", 300, 0x1010008);
    s.passes(1, 3);
    s.passes(1, 31); // too old
    s.pays("alipay", 301, 0x2010007);
    s.passes(1, 3);
    s.pays("alipay", 301, 17);
    s.passes(1, 3);
    s.router_says("alipay ends", app_message(2, app_word(301), 17, tablet.mac, 0));
    s.comes(303, 303001);
    set_clock(clock_now() + 5);
    s.comes(303, 303002);
    s.asks(13);
    s.asks(14);
    platform.device(tablet.mac).role = "0";
    s.pays("alipay", 301, 0x1010007);
    s.asks(13);
    s.passes(1);
}

void requests_are_answered(scene &s)
{
    s.before([&] {
        two_devices(s);
        starts(s, {7, 8});
    });
    s.asks(12);
    s.asks(14);
    s.asks(11, limits);
    s.before([&] {
        s.passes(1, 3);
        s.uses(7, 5); // 8 is silent
    });
    for (unsigned int id : {6u, 7u, 8u, 9u, 12u, 13u, 14u})
        s.asks(id);
    s.asks(11, json("{'device':'@','data':[{'class_type':2,'onoff':0,'use_time':7,'appid':[8]}]}"));
    s.asks(12);
    s.asks(11, "no limits");
    platform.device(tablet.mac).role = "2";
    s.asks(12);
    platform.device(tablet.mac).role = "0";
    s.asks(6);
    platform.failing = {"get_config_path"}; // then the device stays
    s.asks(11, limits);
    platform.failing = {};
    s.asks(11, limits);
}

void the_day_ends(scene &s)
{
    set_clock(evening + 3 * 3600 - 900);
    s.before([&] {
        two_devices(s);
        starts(s, {9, 7});
        s.asks(11, limits);
    });
    catalogue("7,8,12");
    s.passes(1, 3);
    s.before([&] {
        s.uses(7, 3);
        s.passes(3);
        starts(s, {9, 7, 12}); // 12 takes the time axis from 7, and is silent
        s.uses(7, 6);
        s.comes(5, start | 5, phone);
        s.uses(7, 2);
    });
    starts(s, {7});
    if (app_ident_record *game = s.app(7)) { // a state that no message makes, with something in every field
        app_ident_record &odd = s.record(tablet)->apps[50];
        odd = *game;
        INIT_LIST_HEAD(&odd.rule_list_head);
        odd.app_id = 77;
        odd.app_state = APP_HIT;
        odd.period_time = odd.sum_time = odd.time_axis_period_time = odd.time_axis_sum_time = 3;
        odd.alert_push_num = odd.daydayup_alert_push_num = 1;
        odd.time_axis_end_time = odd.end_time = evening;
        app_data hit = {};
        add_rule_record(&odd, &hit);
    }
    s.uses(5, 1, phone);
    s.passes(1, 3); // once more in that minute
    s.router_says("phone goes", host_message(2, phone.mac));
    s.router_says("phone comes", host_message(0, phone.mac));
    s.comes(5, start | 5, phone);
    s.passes(1);
    s.passes(1); // the delayed history
}

void midnight_without_a_role(scene &s)
{
    set_clock(evening + 4 * 3600 - 180);
    s.before([&] {
        two_devices(s);
        starts(s, {12, 7});
        s.comes(5, start | 5, phone);
        s.uses(7, 1);
    });
    platform.device(phone.mac).role = "0";
    s.uses(7, 2); // a role is gone, and midnight
    if (device_record *dev = s.record(tablet)) {
        EXPECT_TRUE(dev->delay_push_appid == 0 || dev->delay_push_rand_time - 1 < 50) << dev->delay_push_rand_time;
        dev->delay_push_rand_time = 3;
    }
    s.comes(12, start | 12);
    s.uses(12, 3);
}

void the_clock_is_set(scene &s)
{
    s.before([&] {
        two_devices(s);
        s.asks(11, limits);
        set_clock(evening + 7200);
        s.comes(5, start | 5, phone);
        starts(s, {9, 7});
        s.uses(7, 4);
    });
    s.passes(1, 3);
    set_clock(clock_now() - 3); // to the second of the last report
    s.passes(1, 0);
    set_clock(evening);
    s.passes(1); // back
    s.comes(7, 70);
    starts(s, {9, 7});
    s.uses(7, 1);
    set_clock(clock_now() + 5 * 365 * 86400);
    s.comes(7, 70); // before a pass has seen the new time: years of use
    s.passes(4);
}

void a_device_goes_and_comes(scene &s)
{
    s.before([&] {
        two_devices(s);
        starts(s, {9});
        s.passes(1, 3);
        s.uses(9, 2);
        starts(s, {7}); // takes the time axis; 9 has minutes of the day
        s.passes(1, 3);
        s.uses(7, 3);
    });
    s.comes(7, 76);
    s.passes(1);
    for (int twice = 0; twice < 2; twice++)
        s.router_says("tablet goes", host_message(2, tablet.mac));
    s.router_says("phone goes", host_message(2, phone.mac)); // never seen
    s.router_says("tablet comes", host_message(0, tablet.mac));
    s.comes(7, 70);
    starts(s, {7});
    s.uses(7, 1);
    platform.failing = {"new_push_msg"};
    s.passes(3);
}

struct one_scene {
    const char *name;
    void (*play)(scene &);
    unsigned tells;
};
void PrintTo(const one_scene &one, std::ostream *out)
{
    *out << one.name;
}
const one_scene all_scenes[] = {
    {"devices_and_roles", devices_and_roles, in_short | role_look_ups},
    {"the_time_axis", the_time_axis, in_short},
    {"limits_alert", limits_alert, in_short},
    {"payments", payments, in_short},
    {"requests_are_answered", requests_are_answered, in_short},
    {"the_day_ends", the_day_ends, in_short},
    {"midnight_without_a_role", midnight_without_a_role, in_short},
    {"the_clock_is_set", the_clock_is_set, in_short},
    {"a_device_goes_and_comes", a_device_goes_and_comes, in_short | dumps},
};

lines lines_of(std::istream &text)
{
    lines all;
    for (std::string line; std::getline(text, line);)
        all.push_back(line);
    return all;
}

// Where the texts part: the last lines of that step which are the same in both, then a few lines of each. "" for equal texts.
std::string first_difference(const lines &expected, const lines &now)
{
    size_t same = 0, step = 0;
    for (; same < std::min(expected.size(), now.size()) && expected[same] == now[same]; same++)
        if (now[same][0] != ' ')
            step = same;
    if (same == expected.size() && same == now.size())
        return "";
    std::string text = "line " + std::to_string(same + 1) + ":\n";
    for (size_t i = same - std::min<size_t>(same - step, 6); i < same; i++)
        text += "    " + now[i] + "\n";
    for (const auto &[mark, side] : {std::pair{"  - ", &expected}, {"  + ", &now}})
        for (size_t i = same; i < std::min(side->size(), same + 4); i++)
            text += mark + (*side)[i] + "\n";
    return text;
}

struct a_day : testing::TestWithParam<one_scene> {};
struct allocation_failure : testing::TestWithParam<one_scene> {};

TEST_P(a_day, is_told_to_the_letter)
{
    const std::string path = SCENES_DIRECTORY + std::string("/") + GetParam().name + ".txt";
    memory = {};
    scene today(GetParam().tells);
    GetParam().play(today);
    if (getenv("ACCEPT_SCENES") != nullptr)
        std::ofstream(path) << today.text();
    std::ifstream file(path);
    std::istringstream now(today.text());
    const std::string difference = first_difference(lines_of(file), lines_of(now));
    EXPECT_TRUE(difference.empty()) << difference << "ACCEPT_SCENES=1 writes the text as it is now to " << path;
}

// Memory is back: a new device is tracked and leaves as ever. A message for which there was no buffer still waits before it.
void expect_that_it_goes_on(scene &s)
{
    platform.router_messages.clear();
    platform.failing.clear();
    s.arrive(laptop);
    for (int i = 0; i < 2 || (memory.end > memory.first + 1 && i < 60); i++)
        s.feed_traffic(accounting_message(app_word(7), start, laptop.ip, 1, 2));
    EXPECT_NE(s.app(7, laptop), nullptr);
    s.leave(laptop);
    EXPECT_EQ(s.record(laptop), nullptr);
}

// Others free the daemon's records, and a firmware may have replaced malloc alone.
TEST(records, come_from_malloc)
{
    memory = {};
    scene today(nothing);
    today.arrive(laptop);
    EXPECT_EQ(memory.records, 1);
}

// Returns how many allocations the scene asked for.
long live(const one_scene &one, long first_refused, long refused)
{
    memory = {false, 0, first_refused, first_refused + refused, 0};
    scene today(nothing);
    one.play(today);
    expect_that_it_goes_on(today);
    return memory.reached;
}

TEST_P(allocation_failure, the_daemon_outlives_each_one)
{
    cJSON_Hooks hooks = {malloc, free};
    cJSON_InitHooks(&hooks);
    const long plenty = live(GetParam(), 1, 0);
    EXPECT_GT(plenty, 100);
    long n = 1;
    for (; n <= live(GetParam(), n, 1) && !HasFailure(); n += ALLOCATION_STEP)
        ;
    EXPECT_GT(n, plenty / 2) << "hardly any failure was survived far enough to reach the next";
    live(GetParam(), 1, 1000000);
    cJSON_InitHooks(nullptr);
}

std::string name_of(const testing::TestParamInfo<one_scene> &info)
{
    return info.param.name;
}
INSTANTIATE_TEST_SUITE_P(, a_day, testing::ValuesIn(all_scenes), name_of);
INSTANTIATE_TEST_SUITE_P(, allocation_failure, testing::ValuesIn(all_scenes), name_of);

} // namespace
