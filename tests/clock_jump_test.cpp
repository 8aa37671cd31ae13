// The wall clock is set, once by the router's owner and once by a time server, years away from where it was.
#include "tests/support/household.h"

constexpr u32 five_years = 5 * 365 * 86400;

struct clock_jump : household {
    clock_jump()
    {
        arrive(tablet);
        hit(7, start);
        wait(90);
        hit(7, more);
        wait(3);
        sent();
    }
    // Everything open ends at once, with the minutes that were counted.
    void expect_end_at(u32 now)
    {
        set_clock(now);
        tick();
        EXPECT_SENT(status(0, 7, 60), presence("offline", 7, evening, evening + 60, 1),
                    history(7, 60, 100, 1000, "16777223,7"));
    }
};

TEST_F(clock_jump, back_by_years)
{
    expect_end_at(evening - five_years);
    // What goes on being used is seen again from its next start on.
    hit(7, more);
    EXPECT_SENT();
    hit(7, start);
    wait(60);
    EXPECT_EQ(brief(7), "using 1/1 axis 1/1 up 100 hits 1 0 0");
    // Withdrawn roles and the catalogue are looked at again only when the clock has passed its old time.
    platform.device(tablet.mac).role = "0";
    wait(1300);
    EXPECT_NE(record(tablet), nullptr);
    set_clock(60);
    EXPECT_EQ(feed_traffic(accounting_message(app_word(9), start, tablet.ip, 1, 2)), 0);
    EXPECT_EQ(app(9), nullptr) << "no year has passed since 1970: the clock is not set";
}

TEST_F(clock_jump, forward_by_years)
{
    expect_end_at(evening + five_years);
}

TEST_F(clock_jump, forward_by_years_and_a_hit_before_the_next_pass)
{
    set_clock(evening + five_years);
    hit(7, more);
    EXPECT_SENT();
    wait(240);
    // The minutes of the jump are told as minutes of use.
    const std::string told = history(7, five_years - 60, 200, 2000, "16777223,7");
    lines all = sent();
    EXPECT_EQ(std::count(all.begin(), all.end(), told), 1) << ::testing::PrintToString(all);
}
