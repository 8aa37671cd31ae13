// Whole stories, from the bytes of an accounting message to the texts of the pushes, with the order in which they leave.
#include "tests/kit/household.h"

class stories : public household {
protected:
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

TEST_F(stories, bytes_go_beyond_32_bits_and_begin_anew)
{
    arrive(tablet);
    hit(5, more);
    EXPECT_EQ(app(5), nullptr) << "a continuing hit opens nothing";
    hit(5, start, {100, 1000, 7});
    wait(90);
    hit(5, more, {4000000000u, 20, 9});
    hit(5, more, {4000000000u, 30, 8});
    wait(200);
    EXPECT_EQ(sent().back(), history(5, 60, 8000000000, 50, "16777223,9,8"));
    hit(5, start, {5, 6, 7});
    EXPECT_EQ(brief(5), "using 1/1 axis 1/1 up 5 hits 1 0 0") << "the sum goes on, and the opening hit counts into the bytes";
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
    for (int i = 0; i < 4; i++) {
        wait(20);
        hit(5, more);
    }
    wait(200);
    hit(5, start);
    wait(130);
    set_clock(clock_now() - 10);
    tick();
    EXPECT_EQ(app(5)->move_step, 3u);
    wait(70);
    EXPECT_EQ(brief(5), "disuse 0/1 off 0/0 up 0 hits 0 0 0");
}

TEST_F(stories, flows_that_are_no_app)
{
    device_record *dev = arrive(tablet);
    hit(5, start);
    for (u32 id : {300u, 301u, 302u, 303u, 0u})
        hit(id, start);
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
