// Each rule of joining pushes to sessions, as an evening or a night tells it.
#include "home/days.h"
#include "home/joining.h"
#include "home/queries.h"
#include "tests/home/daemon_voice.h"

#include <gtest/gtest.h>

#include <time.h>

namespace {

constexpr int64_t evening = 1699990800; // 2023-11-14 19:40 UTC

struct home_joining : testing::Test {
    scratch_directory directory;
    history all;
    daemon_voice daemon;

    void SetUp() override
    {
        setenv("TZ", "UTC", 1);
        tzset();
        std::string why;
        ASSERT_TRUE(open_history(&all, directory.file("home.db"), {}, &why)) << why;
    }
    void TearDown() override
    {
        // Whatever was told: the days say what the sessions say, and nobody does two things at once.
        EXPECT_EQ(session_minutes(&all), day_minutes(&all));
        EXPECT_EQ(overlaps(), 0);
        EXPECT_EQ(all.db.error, SQLITE_OK);
        close_history(&all);
    }
    int64_t overlaps()
    {
        return value_of(&all, "SELECT count(*) FROM session a JOIN session b ON a.device=b.device AND a.start<b.start AND "
                              "a.end>b.start");
    }
    void take()
    {
        take_text(&all, daemon.text);
        daemon.text.clear();
    }
};

TEST_F(home_joining, session_is_told_from_start_to_report)
{
    daemon.time = evening;
    daemon.presence("online", tablet, video, evening, 0);
    daemon.using_until(tablet, video, evening, 2);
    take();
    EXPECT_EQ(sessions_of(&all, tablet), "video 19:40 +2 open");
    // "using" goes on for three minutes after the last hit: it is drawn to its minutes, not to now.
    for (int late = 3; late <= 5; ++late) {
        daemon.time = evening + late * 60;
        daemon.presence("using", tablet, video, evening, 2);
    }
    take();
    EXPECT_EQ(sessions_now(&all.db).at(0).end, evening + 120);
    daemon.presence("offline", tablet, video, evening, 3, evening - 999);
    daemon.history_of(tablet, video, 3);
    take();
    EXPECT_EQ(sessions_of(&all, tablet), "video 19:40 +3 reported");
    std::vector<use_row> use = use_between(&all.db, 20231114, 20231114);
    ASSERT_EQ(use.size(), 1u);
    EXPECT_EQ(use[0].minutes, 3);
    EXPECT_EQ(use[0].up, 30);
    EXPECT_EQ(use[0].down, 3000);
    EXPECT_EQ(list_devices(&all.db).at(0).name, "Ben's tablet");
}

TEST_F(home_joining, app_of_less_than_a_minute_is_no_session)
{
    daemon.time = evening;
    daemon.presence("online", tablet, video, evening, 0);
    daemon.time = evening + 185;
    daemon.presence("offline", tablet, video, evening, 0, evening);
    take();
    EXPECT_EQ(sessions_of(&all, tablet), "");
}

TEST_F(home_joining, next_app_ends_the_one_before)
{
    // The newer app is told before the end of the older one, as the daemon does for an app that was used before.
    daemon.time = evening;
    daemon.presence("online", tablet, video, evening, 0);
    daemon.using_until(tablet, video, evening, 9);
    daemon.time = evening + 620;
    daemon.presence("online", tablet, chat, evening + 620, 0);
    daemon.presence("offline", tablet, video, evening, 10, 0);
    daemon.history_of(tablet, video, 10);
    daemon.using_until(tablet, chat, evening + 620, 5);
    take();
    EXPECT_EQ(sessions_of(&all, tablet), "video 19:40 +10 reported; chat 19:50 +5 open");
    // And when its end is lost, it ended all the same, with what was known.
    daemon.time = evening + 1000;
    daemon.presence("online", tablet, game, evening + 1000, 0);
    take();
    EXPECT_EQ(sessions_of(&all, tablet), "video 19:40 +10 reported; chat 19:50 +5 presumed; game 19:56 +0 open");
}

TEST_F(home_joining, device_that_loses_its_role_has_no_end_but_a_report)
{
    daemon.time = evening;
    daemon.presence("online", tablet, video, evening, 0);
    daemon.using_until(tablet, video, evening, 12);
    daemon.time += 70;
    daemon.history_of(tablet, video, 13);
    take();
    EXPECT_EQ(sessions_of(&all, tablet), "video 19:40 +13 reported");
}

TEST_F(home_joining, device_without_a_role_gets_its_starts_from_its_status)
{
    daemon.time = evening;
    daemon.status_of(phone, video, 1);
    daemon.time = evening + 600;
    daemon.history_of(phone, video, 7);
    daemon.status_of(phone, video, 0);
    daemon.time = evening + 900;
    daemon.status_of(phone, chat, 1);
    // At 23:00 the session is begun anew with every tick of that minute.
    for (daemon.time = evening + 12000; daemon.time < evening + 12060; daemon.time += 3) {
        daemon.status_of(phone, chat, 0);
        daemon.status_of(phone, chat, 1);
    }
    daemon.time = evening + 12900;
    daemon.history_of(phone, chat, 14);
    take();
    EXPECT_EQ(sessions_of(&all, phone), "video 19:40 +7 reported; chat 23:00 +14 reported");
}

TEST_F(home_joining, report_without_anything_before_it_still_counts)
{
    daemon.whole_session(tablet, video, evening, 5);
    daemon.history_of(tablet, chat, 30);
    daemon.history_of(tablet, game, 20, 123456);
    take();
    EXPECT_EQ(session_minutes(&all), 55);
}

// A session that the day's end cuts has no end: its report comes later, before or after its continuation is told.
struct day_end_case {
    const char *name;
    int64_t cut;       // seconds after the start
    int64_t report;    // the same
    bool told_between; // the continuation is told before the report
};
TEST_F(home_joining, days_end_cuts_a_session_in_two)
{
    constexpr int64_t at_23 = 1700002800, midnight = 1700006400;
    const day_end_case cases[] = {{"23:01, at once", at_23, at_23 + 61, false},
                                  {"23:01, after the continuation", at_23, at_23 + 119, true},
                                  {"00:01", midnight, midnight + 62, false},
                                  {"00:50", midnight, midnight + 3000, true}};
    for (int which = 0; which < 4; ++which) {
        const day_end_case &one = cases[which];
        SCOPED_TRACE(one.name);
        int64_t start = one.cut + which * 864000 - 1230, again = one.cut + which * 864000 + 58;
        daemon.time = start;
        daemon.presence("online", tablet, video, start, 0);
        daemon.using_until(tablet, video, start, 19);
        int64_t report = one.report + which * 864000;
        int64_t minutes = 1;
        for (; one.told_between && again + minutes * 60 < report; ++minutes) {
            daemon.time = again + minutes * 60;
            daemon.presence("using", tablet, video, again, minutes);
        }
        daemon.time = report;
        daemon.history_of(tablet, video, 20, 5000);
        for (; minutes <= 60; ++minutes) {
            daemon.time = again + minutes * 60 + 5;
            daemon.presence("using", tablet, video, again, minutes);
        }
        daemon.presence("offline", tablet, video, again, 60, 0);
        daemon.history_of(tablet, video, 60);
        take();
        EXPECT_EQ(value_of(&all, "SELECT count(*) FROM session"), 2 * (which + 1));
        EXPECT_EQ(value_of(&all, "SELECT count(*) FROM session WHERE state=1 AND told>0"), 2 * (which + 1));
        EXPECT_EQ(session_minutes(&all), 80 * (which + 1));
        EXPECT_EQ(value_of(&all, ("SELECT minutes FROM session WHERE start=" + std::to_string(start)).c_str()), 20);
    }
}

TEST_F(home_joining, forward_jump_of_the_clock_is_no_use)
{
    daemon.time = evening;
    daemon.presence("online", tablet, video, evening, 0);
    daemon.using_until(tablet, video, evening, 10);
    // The clock goes on by two hours, and the app is used for another four minutes.
    for (int more = 1; more <= 4; ++more) {
        daemon.time = evening + 600 + 7200 + more * 60;
        daemon.presence("using", tablet, video, evening, 130 + more);
    }
    daemon.time += 180;
    daemon.presence("offline", tablet, video, evening, 135, 0);
    daemon.history_of(tablet, video, 135);
    take();
    // 17 minutes have passed; the daemon counted two hours more.
    EXPECT_GE(session_minutes(&all), 14);
    EXPECT_LE(session_minutes(&all), 17);
    EXPECT_EQ(gaps_between(&all.db, 0, INT64_MAX).at(0).why, "clock");
    // An app that was not used after the jump keeps what it had.
    int64_t later = daemon.time + 1000;
    daemon.time = later;
    daemon.presence("online", phone, chat, later, 0);
    daemon.using_until(phone, chat, later, 6);
    daemon.time += 86400;
    daemon.presence("offline", phone, chat, later, 6, 0);
    daemon.history_of(phone, chat, 6);
    take();
    EXPECT_EQ(value_of(&all, "SELECT minutes FROM session WHERE app=1002"), 6);
}

TEST_F(home_joining, silent_spool_between_two_reports_is_no_jump)
{
    // A sparse spool of an older daemon: nothing says that reports come each minute.
    daemon.numbered = false;
    daemon.time = evening;
    daemon.presence("online", tablet, video, evening, 0);
    daemon.time = evening + 300;
    daemon.presence("using", tablet, video, evening, 4);
    daemon.time = evening + 5400;
    daemon.presence("offline", tablet, video, evening, 87, 0);
    daemon.history_of(tablet, video, 87);
    take();
    EXPECT_EQ(sessions_of(&all, tablet), "video 19:40 +87 reported");
}

TEST_F(home_joining, backward_step_of_the_clock_lets_no_sessions_overlap)
{
    daemon.time = evening;
    daemon.presence("online", tablet, video, evening, 0);
    daemon.using_until(tablet, video, evening, 59);
    daemon.time = evening + 1200;
    daemon.presence("offline", tablet, video, evening, 60, 0);
    daemon.history_of(tablet, video, 60);
    daemon.whole_session(tablet, chat, evening + 1210, 10);
    take();
    EXPECT_EQ(session_minutes(&all), 70);
}

TEST_F(home_joining, daemon_that_comes_back_ends_what_it_had)
{
    daemon.time = evening;
    daemon.presence("online", tablet, video, evening, 0);
    daemon.using_until(tablet, video, evening, 8);
    daemon.run = "00000000000000bb";
    daemon.seq = 0;
    daemon.time += 100;
    daemon.presence("online", phone, chat, daemon.time, 0);
    take();
    EXPECT_EQ(sessions_of(&all, tablet), "video 19:40 +8 presumed");
    EXPECT_EQ(gaps_between(&all.db, 0, INT64_MAX).at(0).why, "restart");
    EXPECT_EQ(daemon_since(&all.db), daemon.time);
    // Its new session of the same app is another one.
    daemon.whole_session(tablet, video, daemon.time + 60, 5);
    take();
    EXPECT_EQ(sessions_of(&all, tablet), "video 19:40 +8 presumed; video 19:50 +5 reported");
}

TEST_F(home_joining, daemon_without_numbers_that_fell_silent_ended_what_it_had)
{
    daemon.numbered = false;
    daemon.time = evening;
    daemon.presence("online", tablet, video, evening, 0);
    daemon.using_until(tablet, video, evening, 8);
    take();
    end_silent_sessions(&all, daemon.time + 590);
    EXPECT_EQ(sessions_of(&all, tablet), "video 19:40 +8 open");
    daemon.time += 2000;
    daemon.presence("online", phone, chat, daemon.time, 0);
    take();
    EXPECT_EQ(sessions_of(&all, tablet), "video 19:40 +8 presumed");
}

TEST_F(home_joining, what_the_daemon_says_now_is_the_truth)
{
    daemon.time = evening;
    daemon.presence("online", tablet, video, evening, 0);
    daemon.presence("online", phone, chat, evening, 0);
    daemon.using_until(tablet, video, evening, 3);
    take();
    // A home of thirty devices is cut short in "using": what it leaves out is listed here.
    take_now(&all, {tablet, phone}, {{phone, chat, evening, 3}}, daemon.time + 30);
    EXPECT_EQ(sessions_of(&all, tablet), "video 19:40 +3 presumed");
    EXPECT_EQ(sessions_of(&all, phone), "chat 19:40 +3 open");
    // Its end was in the spool all the time.
    daemon.time += 60;
    daemon.presence("offline", tablet, video, evening, 4, 0);
    daemon.history_of(tablet, video, 4);
    take();
    EXPECT_EQ(sessions_of(&all, tablet), "video 19:40 +4 reported");
}

TEST_F(home_joining, alerts_are_kept_with_what_they_tell)
{
    daemon.time = evening;
    std::string head = std::string("{\"endmac\":\"") + tablet + "\",\"alias\":\"\",";
    daemon.say(1012,
               head + "\"role\":\"1\",\"paytype\":\"2\",\"ruleid\":\"7,8\",\"timestamp\":\"1699990799\",\"folk_id\":\"-1\"}");
    daemon.say(1015, head + "\"class_type\":\"1\",\"use_time\":\"120\",\"folk_id\":\"-1\"}");
    daemon.say(1021, head + "\"role\":\"1\",\"appid\":\"1001\",\"times\":\"1800\",\"folk_id\":\"-1\"}");
    daemon.say(1022, head + "\"role\":\"1\",\"appid\":\"1003\",\"folk_id\":\"-1\"}");
    take();
    std::vector<alert_row> alerts = alerts_since(&all.db, 0, 100);
    ASSERT_EQ(alerts.size(), 4u);
    EXPECT_EQ(alerts[0].category, 2);
    EXPECT_EQ(alerts[0].rules, "7,8");
    EXPECT_EQ(alerts[1].amount, 120);
    EXPECT_EQ(alerts[2].amount, 30);
    EXPECT_EQ(alerts[3].app, game);
    EXPECT_TRUE(all.db.commit_wanted); // an alert does not wait for the next batch
}

TEST_F(home_joining, minutes_over_midnight_belong_to_two_days)
{
    // A daemon in another zone does not cut at our midnight. Bytes follow the minutes, and none is lost.
    daemon.whole_session(tablet, video, 1700006400 - 605, 30);
    take();
    std::vector<use_row> use = use_between(&all.db, 20231114, 20231115);
    ASSERT_EQ(use.size(), 2u);
    EXPECT_EQ(use[0].minutes, 11);
    EXPECT_EQ(use[1].minutes, 19);
    EXPECT_EQ(use[0].down + use[1].down, 30000);
}

TEST_F(home_joining, days_of_23_and_25_hours_hold_their_minutes)
{
    const struct {
        const char *zone;
        int day;
        int64_t hours;
    } cases[] = {{"Europe/Berlin", 20240331, 23}, {"Europe/Berlin", 20241027, 25},  {"Europe/Berlin", 20241028, 24},
                 {"Asia/Beirut", 20240331, 23},   {"America/Havana", 20241103, 25}, {"Asia/Shanghai", 20240331, 24},
                 {"Africa/Cairo", 20240426, 23}};
    for (const auto &one : cases) {
        SCOPED_TRACE(one.zone);
        setenv("TZ", one.zone, 1);
        tzset();
        int64_t from = day_start(one.day), to = day_end(one.day);
        EXPECT_EQ(to - from, one.hours * 3600);
        EXPECT_EQ(day_of(from), one.day);
        EXPECT_EQ(day_of(from - 1), day_after(one.day, -1));
        EXPECT_EQ(day_of(to - 1), one.day);
        daemon.time = from;
        for (int64_t at = from; at < to; at += 600)
            daemon.whole_session(tablet, video, at, 5);
        take();
        std::vector<use_row> use = use_between(&all.db, one.day, one.day);
        ASSERT_EQ(use.size(), 1u);
        EXPECT_EQ(use[0].minutes, one.hours * 30);
        change(&all.db, "DELETE FROM session");
        change(&all.db, "DELETE FROM day_use");
        daemon.seq += 100000;
    }
    EXPECT_EQ(read_day("2024-02-29"), 20240229);
    EXPECT_EQ(read_day("2023-02-29"), 0);
    EXPECT_EQ(read_day("2024-2-29"), 0);
}

// Whatever is lost, comes twice, comes late or is not what the daemon wrote: the fixture's promises hold, and a second time
// adds nothing.
TEST_F(home_joining, promises_hold_for_any_disorder)
{
    for (unsigned int seed = 1; seed <= 40; ++seed) {
        SCOPED_TRACE(seed);
        srand(seed);
        daemon.run = "00000000000000" + std::to_string(10 + seed);
        daemon.seq = 0;
        int64_t start = evening + seed * 90000;
        for (int i = 0; i < 12; ++i, start = daemon.time + rand() % 400 - 60)
            daemon.whole_session(i % 3 ? tablet : phone, 1001 + static_cast<u32>(rand() % 3), start, 1 + rand() % 20);
        std::string disorder, held;
        for (size_t begin = 0, end = 0; (end = daemon.text.find('\n', begin)) != std::string::npos; begin = end + 1) {
            std::string line = daemon.text.substr(begin, end + 1 - begin);
            switch (rand() % 12) {
            case 0:
                continue; // lost
            case 1:
                disorder += line; // twice
                break;
            case 2:
                line[static_cast<size_t>(rand()) % (line.size() - 1)] = static_cast<char>(1 + rand() % 255);
                break;
            case 3:
                held.swap(line); // late
                break;
            }
            disorder += line;
        }
        daemon.text = disorder + held + "\n";
        std::string again = daemon.text;
        take();
        EXPECT_EQ(session_minutes(&all), day_minutes(&all));
        EXPECT_EQ(overlaps(), 0);
        int64_t sessions = value_of(&all, "SELECT count(*) FROM session"), minutes = session_minutes(&all);
        take_text(&all, again);
        EXPECT_EQ(value_of(&all, "SELECT count(*) FROM session"), sessions);
        EXPECT_EQ(session_minutes(&all), minutes);
    }
}

} // namespace
