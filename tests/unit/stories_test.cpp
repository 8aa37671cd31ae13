// Whole stories, from the bytes of an accounting message to the texts of the pushes, with the order in which they leave.
#include "tests/kit/household.h"

#include "common/guards.h"

#include <string.h>

class stories : public household {
protected:
    // Continuing hits every 20 seconds until the moment, the last one upon it.
    void keep_using(u32 id, u32 moment, const lan_device &device = tablet)
    {
        while (clock_now() < moment) {
            wait(20);
            hit(id, more, {}, device);
        }
    }

    // A history report that waits for its minute.
    static void pend(device_record *dev, u32 id, u32 minutes, u32 armed)
    {
        dev->delay_push_appid = id;
        dev->delay_push_period_time = minutes;
        dev->delay_push_accur_time = armed;
    }

    // What was sent, without the minute reports.
    static lines sent_but_reports()
    {
        lines kept;
        for (const std::string &line : sent())
            if (line.find("\"using\"") == std::string::npos)
                kept.push_back(line);
        return kept;
    }
};

TEST_F(stories, a_session_from_its_first_hit_to_its_history)
{
    const u32 t = evening;
    device_record *dev = arrive(tablet);
    EXPECT_EQ(dev->device_state, -1);
    hit(5, more);
    EXPECT_EQ(app(5), nullptr) << "a continuing hit opens nothing";
    hit(5, start, {100, 1000, 7});
    EXPECT_EQ(dev->device_state, 1);
    EXPECT_EQ(mac_to_text(dev->mac_bytes), tablet.mac);
    EXPECT_SENT(R"(push 1023 0 [{"endmac":"02-00-00-00-00-0A","role":"1","appid":"5","starttime":"1773172800","endtime":"0",)"
                R"("sumtime":"0","status":"online","folk_id":"40"}])",
                "status 1 app 5 at 1773172800 of 02-00-00-00-00-0A");
    wait(90);
    hit(5, more, {1, 10, 8});
    hit(5, more, {4000000000u, 20, 9});
    wait(60);
    hit(5, more, {4000000000u, 30, 8});
    hit(5, start, {3, 40, 7});
    EXPECT_EQ(brief(5), "using 3/0 axis 3/0 up 8000000004 hits 1 2 2");
    wait_until(t + 302);
    const std::string two = presence("using", 5, t, 0, 2);
    EXPECT_SENT(presence("using", 5, t, 0, 1), two, two, two);
    wait(1);
    EXPECT_SENT(status(0, 5, 120), presence("offline", 5, t, t + 120, 2),
                R"(push 1008 0 {"endmac":"02-00-00-00-00-0A","alias":"the 02-00-00-00-00-0A","appid":"5","sumtime":"120",)"
                R"("up_traffic":"8000000004","down_traffic":"100","ruleid":"16777223,8,9","folk_id":"40"})");
    EXPECT_EQ(brief(5), "disuse 0/2 off 0/2 up 0 hits 0 0 0");
    // The same evening again: the sum goes on, and the opening hit counts into the bytes.
    hit(5, more);
    hit(5, start, {5, 6, 7});
    EXPECT_EQ(brief(5), "using 1/2 axis 1/2 up 5 hits 1 0 0");
    EXPECT_SENT(presence("online", 5, t + 303, 0, 0), status(1, 5, t + 303));
}

TEST_F(stories, minutes_and_the_moment_of_closing)
{
    const struct {
        u32 last_hit, minutes, closes;
        const char *window; // after the last hit
    } table[] = {
        {0, 1, 183, "1 0 0"},   {1, 1, 183, "2 0 0"},   {60, 1, 183, "2 0 0"},  {61, 2, 243, "1 1 0"},  {119, 2, 243, "1 1 0"},
        {120, 2, 243, "1 1 0"}, {121, 3, 303, "1 0 1"}, {180, 3, 303, "1 0 1"}, {181, 4, 363, "0 0 1"},
    };
    for (const auto &row : table) {
        SCOPED_TRACE(row.last_hit);
        const std::string minutes = std::to_string(row.minutes), counted = std::to_string(row.minutes - 1);
        const u32 t = static_cast<u32>(clock_now()), seconds = row.minutes * 60 - 60;
        arrive(tablet);
        tick();
        hit(5, start);
        wait(row.last_hit);
        hit(5, more);
        EXPECT_EQ(brief(5), "using " + minutes + "/0 axis " + minutes + "/0 up 100 hits " + row.window);
        wait(row.closes - row.last_hit - 1);
        EXPECT_EQ(app(5)->app_state, APP_USING);
        sent();
        wait(1);
        EXPECT_EQ(brief(5), "disuse 0/" + counted + " off 0/" + counted + " up 0 hits 0 0 0");
        EXPECT_EQ(app(5)->end_time, t + std::max(seconds, 60u));
        lines end = {status(0, 5, seconds), presence("offline", 5, t, seconds == 0 ? 0 : t + seconds, row.minutes - 1)};
        if (seconds > 0)
            end.push_back(history(5, seconds, 100, 1000, "16777223,7"));
        EXPECT_EQ(sent_but_reports(), end);
        leave(tablet);
    }
    // Less than a minute of an app wipes what it had on the time axis, on purpose. A clock a little back changes nothing.
    arrive(tablet);
    hit(5, start);
    app(5)->time_axis_sum_time = app(5)->sum_time = 30;
    wait(130);
    set_clock(clock_now() - 10);
    tick();
    EXPECT_EQ(app(5)->move_step, 3u);
    wait(70);
    EXPECT_EQ(brief(5), "disuse 0/30 off 0/0 up 0 hits 0 0 0");
}

TEST_F(stories, the_time_axis_goes_from_app_to_app)
{
    const u32 t = evening;
    arrive(tablet);
    hit(5, start);
    keep_using(5, t + 80);
    sent();
    // An app never seen before: status first, then the pushes of the one that lost the axis.
    hit(6, start);
    EXPECT_SENT(presence("online", 6, t + 80, 0, 0), status(0, 5, 60), presence("offline", 5, t, t + 60, 1),
                history(5, 60, 400, 4000, "16777223,7"), status(1, 6, t + 80));
    EXPECT_EQ(brief(5), "using 2/0 off 0/1 up 0 hits 4 1 0");
    // Neither kind of hit takes the axis back from app 6. Silent since its first hit that one ends, and the next continuing hit
    // of 5 takes the free axis, status first.
    hit(5, start);
    keep_using(5, t + 240);
    wait_until(t + 266);
    EXPECT_EQ(sent_but_reports(), (lines{status(0, 6, 0), presence("offline", 6, t + 80, 0, 0)}));
    app(5)->alert_push_num = 2;
    hit(5, more);
    EXPECT_SENT(status(1, 5, t), presence("online", 5, t + 266, t + 60, 0));
    EXPECT_EQ(app(5)->alert_push_num, 0u);
    // App 6 again, known by now: the pushes first, then the status; one minute makes no history.
    hit(6, start);
    EXPECT_SENT(presence("online", 6, t + 266, 0, 0), presence("offline", 5, t + 266, t + 326, 0), status(0, 5, 0),
                status(1, 6, t + 266));
    // A starting hit takes a free axis too, the push first.
    app(6)->time_axis_app_state = APP_UNUSED;
    hit(5, start);
    EXPECT_SENT(presence("online", 5, t + 266, t + 326, 0), status(1, 5, t));
    keep_using(5, t + 400);
    sent();
    app(6)->app_state = APP_UNUSED;
    hit(6, start);
    EXPECT_SENT(presence("online", 6, t + 406, 0, 0), presence("offline", 5, t + 266, t + 386, 2),
                history(5, 120, 800, 8000, "16777223,7"), status(0, 5, 120), status(1, 6, t + 406));
}

TEST_F(stories, a_game_takes_the_time_axis)
{
    const u32 t = evening;
    device_record *dev = arrive(tablet);
    hit(9, start);
    dev->utl_num = 2;
    dev->utl[0] = {2, 1, {{5, 1}}, 0, 0, 0};
    dev->utl[1] = {1, 2, {{9, 1}, {5, 0}}, 0, 0, 0};
    wait(10);
    hit(5, start);
    keep_using(5, t + 100);
    sent();
    hit(9, more);
    EXPECT_SENT() << "only a starting hit";
    hit(9, start);
    EXPECT_SENT(presence("offline", 5, t + 10, t + 70, 1), history(5, 60, 500, 5000, "16777223,7"),
                presence("online", 9, t + 110, t + 60, 0))
        << "no status on this road";
    EXPECT_EQ(brief(5), "using 2/0 off 0/1 up 500 hits 4 2 0") << "bytes stay on this road";
    // A session of one minute is reported before its end is noted.
    app(9)->time_axis_app_state = APP_UNUSED;
    hit(5, more);
    app(5)->time_axis_end_time = 4242;
    app(9)->alert_push_num = 2;
    sent();
    hit(9, start);
    EXPECT_SENT(presence("offline", 5, t + 110, 4242, 0), presence("online", 9, t + 110, t + 60, 0));
    EXPECT_EQ(app(9)->alert_push_num, 2u) << "kept on this road";
    hit(5, start);
    dev->utl[1].app_ids[1].checked = 7; // a game too, from now on
    hit(5, start);
    EXPECT_SENT() << "nobody takes it from a game";
}

TEST_F(stories, eleven_at_night_and_midnight)
{
    setenv("TZ", "XST3:30", 1); // the day ends by local time
    tzset();
    const u32 eleven = evening + 6 * 3600 + 1800, midnight = eleven + 3600, t = eleven - 600;
    set_clock(t);
    ticking = start_ticking();
    device_record *dev = arrive(tablet);
    hit(6, start);
    wait(303);
    hit(5, start);
    keep_using(5, eleven - 17);
    dev->utl_num = 2;
    dev->utl[1].alert_push_num = 3;
    app(6)->time_axis_sum_time = 9;
    forget();
    const u32 uptime = platform.uptime + 17;
    wait_until(eleven);
    EXPECT_EQ(sent_but_reports(), (lines{status(0, 5, 240), status(1, 5, t + 303)}));
    EXPECT_EQ(dev->utl[1].alert_push_num, 0u);
    EXPECT_EQ(app(6)->start_time + app(6)->end_time + app(6)->time_axis_start_time + app(6)->time_axis_sum_time, 0u);
    // Every pass of that minute restarts the sessions.
    wait_until(eleven + 59);
    lines statuses = sent_but_reports();
    ASSERT_EQ(statuses.size(), 2u * 19);
    EXPECT_EQ(lines(statuses.end() - 2, statuses.end()), (lines{status(0, 5, 0), status(1, 5, eleven + 54)}));
    EXPECT_EQ(app(5)->start_time, eleven + 57);
    wait(1);
    EXPECT_EQ(sent_but_reports(), (lines{history(5, 240, 1400, 14000, "123456", tablet, uptime)}));
    EXPECT_EQ(dev->delay_push_appid + dev->delay_push_rand_time, 0u);
    // On to midnight with another app on the axis, the first one still open beside it.
    hit(7, start);
    app(5)->time_axis_sum_time = 4;
    while (clock_now() < midnight - 20) {
        keep_using(5, static_cast<u32>(clock_now()) + 20);
        hit(7, more);
    }
    sent();
    const u32 armed = platform.uptime + 20;
    wait(20);
    EXPECT_EQ(sent_but_reports(), (lines{status(0, 7, 3480), status(1, 7, eleven + 60)}));
    EXPECT_EQ(app(5)->time_axis_sum_time + app(7)->time_axis_sum_time + app(7)->sum_time, 0u);
    EXPECT_EQ(app(5)->start_time, midnight);
    EXPECT_EQ(app(7)->time_axis_start_time, midnight);
    EXPECT_TRUE(dev->delay_push_rand_time >= 1 && dev->delay_push_rand_time <= 50);
    dev->delay_push_rand_time = 50;
    wait_until(midnight + 50 * 60 - 1);
    EXPECT_EQ(sent_but_reports(), (lines{status(0, 7, 0), presence("offline", 7, midnight, 0, 0)})) << "no history yet";
    wait(1);
    EXPECT_SENT(history(7, 3480, 17600, 176000, "123456", tablet, armed));
}

TEST_F(stories, a_pending_report_waits_for_a_role)
{
    device_record *dev = arrive(tablet);
    hit(5, start);
    sent();
    platform.failing = {"new_push_msg"};
    const std::pair<u32, const char *> waiting[] = {{5, "0"},   {5, "-1"},  {300, "1"}, {301, "1"},
                                                    {302, "1"}, {310, "1"}, {311, "1"}, {313, "1"}};
    mutex_guard held(device_apps_mtx);
    for (auto [id, role] : waiting) {
        platform.device(tablet.mac).role = role;
        pend(dev, id, 1, 77);
        EXPECT_EQ(push_delay_history_time(dev), -1);
        EXPECT_EQ(dev->delay_push_appid, id);
    }
    pend(dev, 312, 1, 77);
    EXPECT_EQ(push_delay_history_time(dev), -7);
    EXPECT_SENT(history(312, 60, 0, 0, "123456", tablet, 77));
    EXPECT_EQ(dev->delay_push_appid, 0u) << "refused or not";
}

TEST_F(stories, the_clock_steps)
{
    const u32 t = evening;
    device_record *dev = arrive(tablet);
    arrive(phone);
    hit(5, start);
    hit(6, start, {}, phone);
    keep_using(5, t + 600);
    hit(6, start, {}, phone);
    wait_until(t + 609);
    pend(dev, 4, 3, 0);
    forget();
    // Last minute report at t + 600: back to it is no step back, a second before it is.
    set_clock(t + 600);
    tick();
    EXPECT_SENT();
    set_clock(t + 599);
    tick();
    EXPECT_SENT(history(4, 180, 0, 0, "123456"), status(0, 5, 540), presence("offline", 5, t, t + 540, 9),
                history(5, 540, 3000, 30000, "16777223,7"), status(0, 6, 0, phone),
                presence("offline", 6, t + 600, 0, 0, phone));
    EXPECT_EQ(brief(5), "disuse 0/9 off 0/9 up 0 hits 0 0 0");
    EXPECT_EQ(brief(6, phone), "disuse 0/0 off 0/0 up 0 hits 0 0 0");
    // The minute report starts anew; a step forward brings it at once.
    hit(5, start);
    set_clock(t + 661);
    hit(5, more);
    sent();
    set_clock(t + 719);
    tick();
    EXPECT_SENT(presence("using", 5, t + 599, t + 599, 1));
}

TEST_F(stories, the_111th_app)
{
    device_record *dev = arrive(tablet);
    for (u32 id = 1001; id <= 1110; ++id)
        hit(id, start);
    EXPECT_EQ(dev->apps[109].app_id, 1110u);
    std::string before(reinterpret_cast<char *>(dev), sizeof *dev);
    sent();
    hit(1111, start);
    EXPECT_EQ(memcmp(before.data(), dev, sizeof *dev), 0);
    EXPECT_SENT();
    wait(183);
    sent();
    hit(1111, start);
    EXPECT_SENT() << "a closed app keeps its slot";
    hit(1050, start);
    EXPECT_EQ(app(1050)->app_state, APP_USING);
    // Slots that somebody else freed or filled are seen at once; the lowest free one is taken.
    app(1099)->app_id = app(1020)->app_id = 0;
    hit(1111, start);
    EXPECT_EQ(dev->apps[19].app_id, 1111u);
    dev->apps[98].app_id = 1222;
    hit(1222, start);
    EXPECT_EQ(dev->apps[98].app_state, APP_USING);
}

TEST_F(stories, flows_that_are_no_app)
{
    device_record *dev = arrive(tablet);
    hit(5, start);
    for (u32 id : {300u, 301u, 302u, 303u, 0u})
        hit(id, start);
    feed_traffic(accounting_message(app_word(6, 0, 2), start, tablet.ip, 1, 1));
    feed_traffic(accounting_message(app_word(6), start, "192.168.1.200", 1, 1));
    platform.neighbours["192.168.1.201"] = "02-00-00-00-00-0C";
    feed_traffic(accounting_message(app_word(6), start, "192.168.1.201", 1, 1));
    set_clock(31535999);
    hit(6, start);
    EXPECT_EQ(dev->apps[1].app_id, 0u);
    set_clock(31536000);
    feed_traffic(accounting_message(app_word(0xFFFF) | 0x80000000u, start, tablet.ip, 1, 1));
    EXPECT_EQ(dev->apps[1].app_id, 0xFFFFu) << "the id ends below the top bit";
    // A device back from offline is known by its new address, and its role is not asked again.
    dev->device_state = 0;
    dev->role = 42;
    platform.neighbours["192.168.1.77"] = tablet.mac;
    feed_traffic(accounting_message(app_word(5), start, "192.168.1.77", 1, 1));
    EXPECT_EQ(dev->device_state, 1);
    EXPECT_EQ(dev->role, 42);
    hit(5, more);
    EXPECT_STREQ(dev->ip, "192.168.1.77") << "an active device keeps the address of its first flow";
}

TEST_F(stories, rule_ids_end_with_the_last_whole_one)
{
    arrive(tablet);
    hit(5, start, {1, 1, 1});
    std::string fitting = "16777217";
    for (u32 rule = 100000000; rule < 100000030; ++rule) {
        hit(5, more, {1, 1, rule});
        fitting += fitting.size() + 10 < 257 ? "," + std::to_string(rule) : "";
    }
    char buffer[257];
    for (auto [room, text] : {std::pair{257, fitting}, {9, "16777217"}, {8, ""}, {1, ""}})
        EXPECT_EQ(get_hit_ruleids(app(5), buffer, room), text) << room;
    EXPECT_EQ(list_entry(app(5)->rule_list_head.next, rule_record, node)->appid, app_word(5)) << "the packed word";
    clear_rule_list(&app(5)->rule_list_head);
    EXPECT_STREQ(get_hit_ruleids(app(5), buffer, sizeof buffer), "");
}

TEST_F(stories, minute_reports)
{
    const u32 t = evening;
    arrive(tablet);
    arrive(phone);
    wait(60);
    hit(5, start, {}, phone);
    hit(6, start);
    sent();
    wait(60);
    EXPECT_SENT() << "of less than a minute";
    wait(2);
    hit(5, more, {}, phone);
    hit(6, more);
    app(6)->time_axis_period_time = 11;
    device_record *dev = record(tablet);
    dev->apps[40] = dev->apps[0];
    INIT_LIST_HEAD(&dev->apps[40].rule_list_head);
    dev->apps[40].app_id = 7;
    wait(58);
    EXPECT_SENT("push 1023 0 [" + presence_object("using", 6, t + 60, 0, 10) + "," +
                presence_object("using", 7, t + 60, 0, 10) + "," + presence_object("using", 5, t + 60, 0, 1, phone) + "]");
    // More than the text holds: as many whole entries as fit, whatever their lengths leave at the end.
    for (app_ident_record &slot : dev->apps) {
        slot.app_id = 10000;
        slot.time_axis_app_state = APP_USING;
        slot.time_axis_period_time = 2;
    }
    for (u32 digits = 0; digits < 160; ++digits) {
        dev->apps[digits / 5].app_id *= 10; // one character more
        mutex_guard held(device_apps_mtx);
        push_using_app();
        const std::string text = sent().at(0);
        EXPECT_TRUE(text.size() >= 3912 && text.size() <= strlen("push 1023 0 ") + 4095) << text.size();
        EXPECT_EQ(text.substr(text.size() - 16), "\"folk_id\":\"40\"}]") << digits;
    }
}
