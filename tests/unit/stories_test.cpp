// Whole stories, from the bytes of an accounting message to the texts of the pushes, with the order in which they leave.
#include "tests/kit/household.h"

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
    keep_using(5, static_cast<u32>(clock_now()) + 80);
    wait(200);
    hit(5, start);
    wait(130);
    set_clock(clock_now() - 10);
    tick();
    EXPECT_EQ(app(5)->move_step, 3u);
    wait(70);
    EXPECT_EQ(brief(5), "disuse 0/1 off 0/0 up 0 hits 0 0 0");
}

TEST_F(stories, eleven_at_night_by_local_time)
{
    setenv("TZ", "XST3:30", 1);
    tzset();
    const u32 eleven = evening + 6 * 3600 + 1800, t = eleven - 303;
    set_clock(t);
    ticking = start_ticking();
    arrive(tablet);
    hit(5, start);
    keep_using(5, eleven - 3);
    sent();
    const u32 uptime = platform.uptime + 3;
    wait_until(eleven);
    EXPECT_EQ(sent_but_reports(), (lines{status(0, 5, 240), status(1, 5, t)}));
    // Every pass of that minute restarts the sessions.
    wait_until(eleven + 59);
    lines statuses = sent_but_reports();
    ASSERT_EQ(statuses.size(), 2u * 19);
    EXPECT_EQ(lines(statuses.end() - 2, statuses.end()), (lines{status(0, 5, 0), status(1, 5, eleven + 54)}));
    EXPECT_EQ(app(5)->start_time, eleven + 57);
    wait(1);
    EXPECT_EQ(sent_but_reports(), (lines{history(5, 240, 1500, 15000, "123456", tablet, uptime)}));
}

TEST_F(stories, midnight_draws_a_minute)
{
    const u32 midnight = evening + 4 * 3600, t = midnight - 303;
    set_clock(t);
    ticking = start_ticking();
    device_record *dev = arrive(tablet);
    hit(5, start);
    keep_using(5, midnight - 3);
    const u32 uptime = platform.uptime + 3;
    wait_until(midnight);
    const u32 drawn = dev->delay_push_rand_time;
    EXPECT_TRUE(drawn >= 1 && drawn <= 50) << drawn;
    keep_using(5, midnight + drawn * 60 - 20);
    sent();
    wait(23);
    EXPECT_EQ(sent_but_reports(), (lines{history(5, 240, 1500, 15000, "123456", tablet, uptime)}));
}

TEST_F(stories, the_clock_goes_back_behind_a_report)
{
    const u32 t = evening;
    arrive(tablet);
    arrive(phone);
    hit(5, start);
    hit(6, start, {}, phone);
    keep_using(5, t + 600);
    wait_until(t + 609);
    sent();
    // Last minute report at t + 600: back to it is no step back, a second before it is.
    set_clock(t + 600);
    tick();
    EXPECT_SENT();
    set_clock(t + 599);
    tick();
    EXPECT_SENT(status(0, 5, 540), presence("offline", 5, t, t + 540, 9), history(5, 540, 3000, 30000, "16777223,7"));
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
    const std::string before = bytes_of(*dev);
    sent();
    hit(1111, start);
    EXPECT_EQ(bytes_of(*dev), before);
    EXPECT_SENT();
    wait(183);
    sent();
    hit(1111, start);
    EXPECT_SENT() << "a closed app keeps its slot";
    hit(1050, start);
    EXPECT_EQ(app(1050)->app_state, APP_USING);
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
    platform.neighbours["192.168.1.77"] = tablet.mac;
    feed_traffic(accounting_message(app_word(5), more, "192.168.1.77", 1, 1));
    EXPECT_STREQ(dev->ip, tablet.ip) << "an active device keeps the address of its first flow";
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
    for (auto [capacity, text] : {std::pair{257, fitting}, {9, "16777217"}, {8, ""}, {1, ""}})
        EXPECT_EQ(get_hit_ruleids(app(5), buffer, capacity), text) << capacity;
    EXPECT_EQ(list_entry(app(5)->rule_list_head.next, rule_record, node)->appid, app_word(5)) << "the packed word";
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
    wait(58);
    EXPECT_SENT("push 1023 0 [" + presence_object("using", 6, t + 60, 0, 1) + "," +
                presence_object("using", 5, t + 60, 0, 1, phone) + "]");
}
