// Each rule of joining pushes to sessions, as an evening or a night tells it.
#include "home/days.h"
#include "home/joining.h"
#include "home/queries.h"
#include "tests/home/daemon_voice.h"

#include <time.h>

#include <map>
#include <sstream>

namespace {

struct home_joining : history_test {
    using key = std::pair<std::string, u32>;
    const char *who = tablet;
    std::map<key, int64_t> begun; // of each app of a device, as the daemon has it

    void TearDown() override
    {
        // Whatever was told: the days say what the sessions say, and nobody does two things at once.
        EXPECT_EQ(session_minutes(), day_minutes());
        EXPECT_EQ(overlaps(), 0);
        EXPECT_EQ(all.db.error, SQLITE_OK);
        history_test::TearDown();
    }
    int64_t overlaps()
    {
        return value_of("SELECT count(*) FROM session a JOIN session b ON a.device=b.device AND a.start<b.start AND "
                        "a.end>b.start");
    }
    // One thing that the daemon does: "=620" and "+60" set its clock, to seconds of the evening or on; "phone" and "tablet" are
    // whom it speaks of; "again video" lets the app begin anew without a word of it; "using video 9" says so for each of nine
    // minutes, "still video 9" once; "end" is "offline" and "report".
    void act(std::istringstream &&words)
    {
        std::string what, app_word;
        int64_t minutes = 0;
        words >> what >> app_word >> minutes;
        u32 app = app_word == "video" ? video : app_word == "chat" ? chat : game;
        int64_t &start = begun[{who, app}];
        if (what[0] == '=' || what[0] == '+')
            daemon.time = (what[0] == '=' ? evening : daemon.time) + stoll(what.substr(1));
        else if (what == "tablet" || what == "phone")
            who = what == "phone" ? phone : tablet;
        else if (what == "again" || what == "online")
            start = daemon.time;
        else if (what == "using")
            daemon.using_until(who, app, start, minutes);
        else if (what == "still")
            daemon.presence("using", who, app, start, minutes);
        else if (what == "status")
            daemon.status_of(who, app, static_cast<int>(minutes));
        else if (what == "restart")
            daemon.run[0] = 'b', daemon.seq = 0;
        if (what == "online")
            daemon.presence("online", who, app, start, 0);
        if (what == "offline" || what == "end")
            daemon.presence("offline", who, app, start, minutes, minutes % 2 ? start - 999 : 0);
        if (what == "report" || what == "late" || what == "end")
            daemon.history_of(who, app, minutes, what == "late" ? 5000 : 0);
    }
    // Acts one after the other, parted by semicolons; then "video 19:40 +11 reported; ..." for all sessions of the device by
    // start, bytes left out.
    std::string after(const std::string &acts)
    {
        std::istringstream list(acts);
        for (std::string one; std::getline(list, one, ';');)
            act(std::istringstream(one));
        take();
        return sessions_of(who);
    }
    std::string sessions_of(const char *mac)
    {
        std::ostringstream told;
        int64_t device = find_device(&all.db, mac);
        for (const session &one : device ? sessions_between(&all.db, 1, INT64_C(4000000000), device) : std::vector<session>()) {
            char clock[8];
            snprintf(clock, sizeof(clock), "%02d:%02d", static_cast<int>(one.start % 86400 / 3600),
                     static_cast<int>(one.start % 3600 / 60));
            told << (told.tellp() ? "; " : "")
                 << (one.app == video  ? "video"
                     : one.app == chat ? "chat"
                                       : "game")
                 << " " << clock << " +" << one.minutes << " " << state_name(one.state);
        }
        return told.str();
    }
};

TEST_F(home_joining, session_is_told_from_start_to_report)
{
    EXPECT_EQ(after("online video; using video 2"), "video 19:40 +2 open");
    // "using" goes on for three minutes after the last hit: it is drawn to its minutes, not to now.
    after("=180; still video 2; =240; still video 2; =300; still video 2");
    EXPECT_EQ(sessions_now(&all.db).at(0).end, evening + 120);
    EXPECT_EQ(after("end video 3"), "video 19:40 +3 reported");
    std::vector<use_row> use = use_between(&all.db, 20231114, 20231114);
    ASSERT_EQ(use.size(), 1u);
    EXPECT_EQ(use[0].minutes, 3);
    EXPECT_EQ(use[0].up, 30);
    EXPECT_EQ(use[0].down, 3000);
    EXPECT_EQ(list_devices(&all.db).at(0).name, "Ben's tablet");
    EXPECT_EQ(after("phone; online chat; +185; offline chat 0"), "") << "less than a minute";
}

TEST_F(home_joining, next_app_ends_the_one_before)
{
    // The newer app is told before the end of the older one, as the daemon does for an app that was used before.
    EXPECT_EQ(after("online video; using video 9; =620; online chat; end video 10; using chat 5"),
              "video 19:40 +10 reported; chat 19:50 +5 open");
    // And when its end is lost, it ended all the same, with what was known.
    EXPECT_EQ(after("=1000; online game"), "video 19:40 +10 reported; chat 19:50 +5 presumed; game 19:56 +0 open");
    // A device that loses its role has no end but a report.
    EXPECT_EQ(after("using game 12; +70; report game 13"),
              "video 19:40 +10 reported; chat 19:50 +5 presumed; game 19:56 +13 reported");
}

TEST_F(home_joining, device_without_a_role_gets_its_starts_from_its_status)
{
    std::string at_23; // the session is begun anew with every tick of that minute
    for (int second = 0; second < 60; second += 3)
        at_23 += "=" + std::to_string(12000 + second) + "; status chat 0; status chat 1;";
    EXPECT_EQ(after("phone; status video 1; =600; report video 7; status video 0; =900; status chat 1;" + at_23 +
                    "=12900; report chat 14"),
              "video 19:40 +7 reported; chat 23:00 +14 reported");
}

TEST_F(home_joining, report_without_anything_before_it_still_counts)
{
    daemon.whole_session(tablet, video, evening, 5);
    after("report chat 30; late game 20");
    EXPECT_EQ(session_minutes(), 55);
}

// A session that the day's end cuts has no end: its report comes later, before or after its continuation is told.
TEST_F(home_joining, days_end_cuts_a_session_in_two)
{
    constexpr int64_t at_23 = 12000, midnight = at_23 + 3600; // seconds of the evening
    const struct {
        const char *name;
        int64_t cut, report; // after the cut
        bool told_between;   // the continuation is told before the report
    } cases[] = {{"23:01, at once", at_23, 61, false},
                 {"23:01, after the continuation", at_23, 119, true},
                 {"00:01", midnight, 62, false},
                 {"00:50", midnight, 3000, true}};
    int64_t sessions = 0;
    for (const auto &one : cases) {
        SCOPED_TRACE(one.name);
        int64_t cut = one.cut + sessions / 2 * 864000, minutes = 1;
        std::string start = std::to_string(cut - 1230), again = std::to_string(cut + 58);
        after("=" + start + "; online video; using video 19; =" + again + "; again video");
        auto go_on = [&](int64_t seconds) {
            after("=" + std::to_string(cut + 58 + minutes * 60 + seconds) + "; still video " + std::to_string(minutes));
        };
        for (; one.told_between && 58 + minutes * 60 < one.report; ++minutes)
            go_on(0);
        after("=" + std::to_string(cut + one.report) + "; late video 20");
        for (; minutes <= 60; ++minutes)
            go_on(5);
        after("end video 60");
        sessions += 2;
        EXPECT_EQ(value_of("SELECT count(*) FROM session"), sessions);
        EXPECT_EQ(value_of("SELECT count(*) FROM session WHERE state=1 AND told>0"), sessions);
        EXPECT_EQ(session_minutes(), 40 * sessions);
        EXPECT_EQ(value_of("SELECT minutes FROM session WHERE start=" + std::to_string(evening) + "+" + start), 20);
    }
}

TEST_F(home_joining, forward_jump_of_the_clock_is_no_use)
{
    // The clock goes on by two hours, and the app is used for another four minutes.
    after("online video; using video 10; =7860; still video 131; +60; still video 132; +60; still video 133; +60; still video "
          "134;"
          "+180; end video 135");
    // 17 minutes have passed; the daemon counted two hours more.
    EXPECT_GE(session_minutes(), 14);
    EXPECT_LE(session_minutes(), 17);
    EXPECT_EQ(gaps_between(&all.db, 0, INT64_MAX).at(0).why, "clock");
    // An app that was not used after the jump keeps what it had.
    after("+1000; phone; online chat; using chat 6; +86400; end chat 6");
    EXPECT_EQ(value_of("SELECT minutes FROM session WHERE app=1002"), 6);
}

TEST_F(home_joining, daemon_without_numbers_tells_its_end_by_silence)
{
    // A sparse spool: nothing says that reports come each minute, and their lack is no jump of the clock.
    daemon.numbered = false;
    EXPECT_EQ(after("online video; =300; still video 4; =5400; end video 87"), "video 19:40 +87 reported");
    EXPECT_EQ(after("phone; online chat; using chat 8"), "chat 21:10 +8 open");
    end_silent_sessions(&all, daemon.time + 590);
    EXPECT_EQ(sessions_of(phone), "chat 21:10 +8 open");
    after("+2000; tablet; online video");
    EXPECT_EQ(sessions_of(phone), "chat 21:10 +8 presumed");
}

TEST_F(home_joining, backward_step_of_the_clock_lets_no_sessions_overlap)
{
    after("online video; using video 59; =1200; end video 60");
    daemon.whole_session(tablet, chat, evening + 1210, 10);
    take();
    EXPECT_EQ(session_minutes(), 70);
}

TEST_F(home_joining, daemon_that_comes_back_ends_what_it_had)
{
    after("online video; using video 8; restart; +100; phone; online chat");
    EXPECT_EQ(sessions_of(tablet), "video 19:40 +8 presumed");
    EXPECT_EQ(gaps_between(&all.db, 0, INT64_MAX).at(0).why, "restart");
    EXPECT_EQ(daemon_since(&all.db), daemon.time);
    // Its new session of the same app is another one.
    daemon.whole_session(tablet, video, daemon.time + 60, 5);
    EXPECT_EQ(after("tablet"), "video 19:40 +8 presumed; video 19:50 +5 reported");
}

TEST_F(home_joining, daemon_that_comes_back_with_an_earlier_clock_is_followed)
{
    EXPECT_EQ(after("=40000000; online video; using video 8; restart; =0; online chat; +480; end chat 5"),
              "chat 19:40 +5 reported; video 18:46 +8 presumed");
    EXPECT_EQ(all.place.last_time, daemon.time);
    EXPECT_EQ(all.place.run, daemon.run);
}

TEST_F(home_joining, what_the_daemon_says_now_is_the_truth)
{
    after("online video; phone; online chat; tablet; using video 3");
    // A home of thirty devices is cut short in "using": what it leaves out is listed here.
    take_now(&all, {tablet, phone}, {{phone, chat, evening, 3}}, daemon.time + 30);
    EXPECT_EQ(sessions_of(tablet), "video 19:40 +3 presumed");
    EXPECT_EQ(sessions_of(phone), "chat 19:40 +3 open");
    // Its end was in the spool all the time.
    EXPECT_EQ(after("+60; end video 4"), "video 19:40 +4 reported");
}

TEST_F(home_joining, alerts_are_kept_with_what_they_tell)
{
    const std::pair<int, const char *> said[] = {
        {1012, R"("role":"1","paytype":"2","ruleid":"7,8","timestamp":"1699990799","folk_id":"-1"})"},
        {1015, R"("class_type":"1","use_time":"120","folk_id":"-1"})"},
        {1021, R"("role":"1","appid":"1001","times":"1800","folk_id":"-1"})"},
        {1022, R"("role":"1","appid":"1003","folk_id":"-1"})"}};
    for (const auto &[code, fields] : said)
        daemon.say(code, std::string("{\"endmac\":\"") + tablet + "\",\"alias\":\"\"," + fields);
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
        for (int64_t at = from; at < to; at += 600)
            daemon.whole_session(tablet, video, at, 5);
        take();
        EXPECT_EQ(use_between(&all.db, one.day, one.day).at(0).minutes, one.hours * 30);
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
        std::istringstream lines(daemon.text);
        for (std::string line; std::getline(lines, line);) {
            line += '\n';
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
        EXPECT_EQ(session_minutes(), day_minutes());
        EXPECT_EQ(overlaps(), 0);
        int64_t sessions = value_of("SELECT count(*) FROM session"), minutes = session_minutes();
        daemon.text = again;
        take();
        EXPECT_EQ(value_of("SELECT count(*) FROM session"), sessions);
        EXPECT_EQ(session_minutes(), minutes);
    }
}

} // namespace
