// Records in states that no message makes: other hands fill them too, and a field may hold anything. Fields are set by hand
// here.
#include "tests/kit/household.h"

#include "common/guards.h"

#include <string.h>

using records = household;

TEST_F(records, a_pending_report_waits_for_a_role)
{
    device_record *dev = arrive(tablet);
    hit(5, start);
    sent();
    platform.failing = {"new_push_msg"};
    const std::pair<u32, const char *> reports[] = {{5, "0"},   {5, "-1"},  {300, "1"}, {301, "1"}, {302, "1"},
                                                    {310, "1"}, {311, "1"}, {313, "1"}, {312, "1"}};
    mutex_guard held(device_apps_mtx);
    for (auto [id, role] : reports) {
        const bool goes = id == 312;
        platform.device(tablet.mac).role = role;
        dev->delay_push_appid = id;
        dev->delay_push_period_time = 1;
        dev->delay_push_accur_time = 77;
        EXPECT_EQ(push_delay_history_time(dev), goes ? -7 : -1);
        EXPECT_EQ(dev->delay_push_appid, goes ? 0 : id) << "taken, refused or not";
    }
    EXPECT_SENT(history(312, 60, 0, 0, "123456", tablet, 77));
}

TEST_F(records, slots_that_somebody_else_freed_or_filled)
{
    device_record *dev = arrive(tablet);
    for (u32 id = 1001; id <= 1110; ++id)
        hit(id, start);
    app(1099)->app_id = app(1020)->app_id = 0;
    hit(1111, start);
    EXPECT_EQ(dev->apps[19].app_id, 1111u) << "the lowest free one";
    dev->apps[98].app_id = 1222;
    hit(1222, start);
    EXPECT_EQ(dev->apps[98].app_state, APP_USING);
}

TEST_F(records, a_device_back_from_offline)
{
    device_record *dev = arrive(tablet);
    dev->device_state = 0;
    dev->role = 42;
    platform.neighbours["192.168.1.77"] = tablet.mac;
    feed_traffic(accounting_message(app_word(5), start, "192.168.1.77", 1, 1));
    EXPECT_EQ(dev->device_state, 1);
    EXPECT_STREQ(dev->ip, "192.168.1.77");
    EXPECT_EQ(dev->role, 42) << "not asked again";
}

TEST_F(records, more_apps_in_use_than_a_report_holds)
{
    device_record *dev = arrive(tablet);
    hit(5, start);
    for (app_ident_record &slot : dev->apps) {
        slot.app_id = 10000;
        slot.time_axis_app_state = APP_USING;
        slot.time_axis_period_time = 2;
    }
    sent();
    // As many whole entries as fit, whatever their lengths leave at the end.
    for (u32 digits = 0; digits < 160; ++digits) {
        dev->apps[digits / 5].app_id *= 10; // one character more
        mutex_guard held(device_apps_mtx);
        push_using_app();
        const std::string text = sent().at(0);
        EXPECT_TRUE(text.size() >= 3912 && text.size() <= strlen("push 1023 0 ") + 4095) << text.size();
        EXPECT_EQ(text.substr(text.size() - 16), "\"folk_id\":\"40\"}]") << digits;
    }
}
