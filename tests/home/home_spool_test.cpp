// The spool followed across rotations, breaks, kills and whatever else may stand in it.
#include "home/line_numbers.h"
#include "home/queries.h"
#include "home/spool_follower.h"
#include "tests/home/daemon_voice.h"

#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>

namespace {

struct home_spool : history_test {
    spool_follower follower;
    std::string spool = directory.file("pushes.jsonl");

    void SetUp() override
    {
        history_test::SetUp();
        follow();
    }
    void TearDown() override { stop(); }
    void follow()
    {
        follower = spool_follower();
        follower.of = &all;
        follower.directory = directory.path;
    }
    void stop()
    {
        close_spool_follower(&follower);
        close_history(&all);
    }
    void begin_again()
    {
        stop();
        begin();
        follow();
    }
    // As after kill -9: what was not committed is gone.
    void be_killed_and_begin_again()
    {
        roll_back(&all.db);
        begin_again();
    }
    void read_all()
    {
        while (read_spool(&follower)) {
        }
    }
    void write()
    {
        int file = open(spool.c_str(), O_WRONLY | O_APPEND | O_CREAT, 0640);
        ASSERT_EQ(::write(file, daemon.text.data(), daemon.text.size()), static_cast<ssize_t>(daemon.text.size()));
        close(file);
        daemon.text.clear();
    }
    void rotate() { ASSERT_EQ(rename(spool.c_str(), (spool + ".1").c_str()), 0); }
    void say_some(int lines)
    {
        for (; lines > 0; --lines) {
            daemon.time += 60;
            daemon.presence("online", tablet, video, daemon.time, 0);
        }
        write();
    }
    int64_t taken() { return all.counts[count_lines]; }
    int64_t lost() { return all.counts[count_lost]; }
};

TEST_F(home_spool, rotations_lose_nothing)
{
    say_some(5);
    read_all();
    say_some(3);
    rotate(); // while following, with lines unread
    say_some(4);
    read_all();
    EXPECT_EQ(taken(), 12);
    commit_batch(&all.db);
    say_some(2);
    read_all();
    be_killed_and_begin_again(); // what was not committed is read again
    EXPECT_EQ(taken(), 12);
    say_some(1);
    rotate(); // while away
    say_some(6);
    read_all();
    EXPECT_EQ(taken(), 21);
    EXPECT_EQ(lost(), 0);
    EXPECT_EQ(all.counts[count_repeated], 0);
    EXPECT_TRUE(gaps_between(&all.db, 0, INT64_MAX).empty());
}

TEST_F(home_spool, two_rotations_missed_are_a_gap_of_exactly_what_was_lost)
{
    say_some(5);
    read_all();
    int64_t seen_last = daemon.time;
    begin_again();
    say_some(2); // lost
    rotate();
    say_some(30); // lost
    output_of("cat " + spool + ".1 " + spool + " >" + directory.file("found"));
    rotate();
    say_some(3);
    rotate();
    say_some(4);
    read_all();
    EXPECT_EQ(taken(), 12);
    EXPECT_EQ(lost(), 32);
    std::vector<gap_row> gaps = gaps_between(&all.db, 0, INT64_MAX);
    ASSERT_EQ(gaps.size(), 1u);
    EXPECT_EQ(gaps[0].lost, 32);
    EXPECT_EQ(gaps[0].why, "lost");
    EXPECT_EQ(gaps[0].start, seen_last);
    EXPECT_EQ(gaps[0].end, seen_last + 33 * 60);
    // Refused by a full queue: the numbers go on, the lines do not.
    daemon.seq += 7;
    say_some(1);
    read_all();
    EXPECT_EQ(lost(), 39);
    // Somebody kept a copy of what was lost.
    EXPECT_TRUE(import_spool(&all, directory.file("found").c_str()));
    EXPECT_EQ(lost(), 7);
    EXPECT_EQ(gaps_between(&all.db, 0, INT64_MAX).size(), 1u);
    EXPECT_EQ(all.place.last, daemon.seq);
}

TEST_F(home_spool, lines_without_numbers_leave_a_gap_of_unknown_size)
{
    daemon.numbered = false;
    say_some(5);
    read_all();
    be_killed_and_begin_again(); // nothing was committed: from the start again
    read_all();
    EXPECT_EQ(taken(), 5);
    begin_again();
    for (int i = 0; i < 3; ++i) {
        rotate();
        say_some(2);
    }
    read_all();
    EXPECT_EQ(taken(), 9);
    ASSERT_EQ(gaps_between(&all.db, 0, INT64_MAX).size(), 1u);
    EXPECT_EQ(gaps_between(&all.db, 0, INT64_MAX)[0].lost, -1);
}

TEST_F(home_spool, same_inode_with_other_lines_is_another_file)
{
    say_some(5);
    read_all();
    begin_again();
    ASSERT_EQ(truncate(spool.c_str(), 0), 0);
    say_some(9);
    read_all();
    EXPECT_EQ(taken(), 14);
    EXPECT_EQ(lost(), 0);
}

TEST_F(home_spool, line_is_taken_when_it_is_whole)
{
    say_some(1);
    daemon.presence("online", tablet, chat, evening + 600, 0);
    std::string whole = daemon.text;
    daemon.text = whole.substr(0, 40);
    write();
    read_all();
    EXPECT_EQ(taken(), 1);
    daemon.text = whole.substr(40);
    write();
    read_all();
    EXPECT_EQ(taken(), 2);
    // The daemon takes half a line back when the disk is full, and writes another one later.
    daemon.text = "{\"run\":\"half";
    write();
    read_all();
    ASSERT_EQ(truncate(spool.c_str(), all.place.spool.offset), 0);
    read_all();
    say_some(1);
    read_all();
    EXPECT_EQ(taken(), 3);
    // Half a line of a daemon that was killed stands before the first one of the next.
    daemon.text = "{\"run\":\"00000000000000aa\",\"seq\":99,\"ti";
    daemon.presence("online", tablet, game, evening + 900, 0);
    write();
    read_all();
    EXPECT_EQ(taken(), 4);
    EXPECT_EQ(all.counts[count_not_json], 1);
}

TEST_F(home_spool, hostile_lines_are_counted_by_reason_and_do_no_harm)
{
    const struct {
        home_count why;
        std::string line;
    } cases[] = {
        {count_too_long, "{\"time\":1,\"code\":1008,\"data\":\"" + std::string(300000, 'x') + "\"}"},
        {count_not_json, "no JSON"},
        {count_not_json, std::string(2000, '[')},
        {count_wrong_shape, "[]"},
        {count_wrong_shape, R"({"time":0,"code":1008,"data":{}})"},
        {count_wrong_shape, R"({"time":1e300,"code":1008,"data":{}})"},
        {count_wrong_shape, R"({"time":1700000000,"code":-1,"data":{}})"},
        {count_wrong_shape, R"({"time":1700000000,"code":1008,"data":"a text"})"},
        {count_unknown_code, R"({"time":1700000000,"code":4711,"data":{}})"},
        {count_wrong_device, R"({"time":1700000000,"code":1008,"data":{"endmac":"'; DROP TABLE session;--"}})"},
        {count_wrong_device, R"({"time":1700000000,"code":1023,"data":[7,null]})"},
        {count_wrong_number, R"({"time":1700000000,"code":1008,"data":{"endmac":"AA-BB-CC-DD-EE-01","appid":"-3"}})"},
        {count_wrong_number,
         R"({"time":1700000000,"code":1023,"data":[{"endmac":"AA-BB-CC-DD-EE-01","appid":"1","starttime":"1e9","status":"online"}]})"},
        {count_wrong_number,
         R"({"time":1700000000,"code":1015,"data":{"endmac":"AA-BB-CC-DD-EE-01","class_type":"x","use_time":"1"}})"},
    };
    for (const auto &one : cases) {
        SCOPED_TRACE(one.line.substr(0, 80));
        int64_t before = all.counts[one.why];
        daemon.text = one.line + "\n";
        write();
        read_all();
        EXPECT_GT(all.counts[one.why], before);
    }
    // A name is a text like any other, however it is meant.
    daemon.say(1022, R"({"endmac":"aa:bb:cc:dd:ee:0f","alias":"<b>\u0007\"' OR 1=1 )"
                     "\xff\xc3\xa4"
                     R"(","role":"1","appid":"5"})");
    write();
    read_all();
    EXPECT_EQ(list_devices(&all.db).back().mac, "AA-BB-CC-DD-EE-0F");
    EXPECT_EQ(list_devices(&all.db).back().name, "<b>?\"' OR 1=1 ?\xc3\xa4");
    EXPECT_EQ(all.db.error, SQLITE_OK);
    EXPECT_EQ(value_of("SELECT count(*) FROM session"), 0);
}

std::string program(const scratch_directory &directory, const std::string &options)
{
    return std::string(HOME_PROGRAM) + " --settings " + directory.file("none.json") + " --database " +
           directory.file("other.db") + " " + options + " 2>&1";
}

TEST_F(home_spool, import_takes_each_numbered_line_once_in_any_order)
{
    int64_t start = evening;
    for (int i = 0; i < 6; ++i, start = daemon.time + 60)
        daemon.whole_session(i % 2 ? tablet : phone, i % 2 ? video : chat, start, 5 + i);
    std::string text = daemon.text;
    size_t half = text.find('\n', text.size() / 2) + 1;
    write_file(directory.file("older"), text.substr(0, half));
    write_file(directory.file("newer"), text.substr(half));
    int status = 0;
    for (const char *file : {"newer", "older", "newer", "older"})
        EXPECT_EQ(output_of(program(directory, "--import " + directory.file(file)), &status), "");
    EXPECT_EQ(status, 0);
    std::string report = output_of(program(directory, "--report --json --day 2023-11-14"));
    json_tree root(cJSON_Parse(report.c_str()));
    ASSERT_TRUE(root) << report;
    double minutes = 0;
    const cJSON *one = nullptr;
    cJSON_ArrayForEach(one, cJSON_GetObjectItem(root.get(), "days")) {
        minutes += cJSON_GetObjectItem(one, "minutes")->valuedouble;
    }
    EXPECT_EQ(minutes, 5 + 6 + 7 + 8 + 9 + 10);
    EXPECT_EQ(cJSON_GetArraySize(cJSON_GetObjectItem(root.get(), "sessions")), 6);
    EXPECT_EQ(cJSON_GetArraySize(cJSON_GetObjectItem(root.get(), "gaps")), 0) << report;
    EXPECT_NE(report.find("\"lost\":0"), std::string::npos) << report;
    EXPECT_EQ(output_of("sqlite3 " + directory.file("other.db") + " 'SELECT sum(minutes) FROM day_use'"), "45\n");
    EXPECT_NE(output_of(program(directory, "--import /no/such/spool"), &status), "");
    EXPECT_NE(status, 0);
}

// The program follows a spool that is written and rotated, and is killed in the midst of it.
TEST_F(home_spool, program_killed_nine_times_has_the_sums_of_the_reports)
{
    write_file(directory.file("home.json"), "{\"runtime_dir\":\"" + directory.path + "\",\"request_socket\":\"" +
                                                directory.file("none.sock") + "\",\"commit_interval\":1}");
    std::string settings = directory.file("home.json"), database = directory.file("killed.db");
    // Of this week, as the program drops what is old.
    int64_t start = time(nullptr) - 4 * 86400, written = 0, minutes = 0, lines_before = 0;
    for (int i = 0; i < 200; ++i, start = daemon.time + 30) {
        daemon.whole_session(i % 3 ? tablet : phone, i % 3 ? video : chat, start, 3 + i % 7);
        minutes += 3 + i % 7;
    }
    std::string text = daemon.text;
    const std::string count_sql =
        "sqlite3 -cmd '.timeout 5000' " + database + " 'SELECT value FROM meta WHERE key=\"seq\"' 2>&1";
    for (int life = 0; life < 10; ++life) {
        pid_t child = fork();
        if (child == 0) {
            execl(HOME_PROGRAM, HOME_PROGRAM, "--settings", settings.c_str(), "--database", database.c_str(), nullptr);
            _exit(127);
        }
        // A tenth of the evening, every other time up to within a line, and after the other times rotated; never twice unread.
        int64_t until = static_cast<int64_t>(text.size()) * (life + 1) / 10;
        if (life % 2 == 0)
            until = static_cast<int64_t>(text.find('\n', static_cast<size_t>(until) - 1)) + 1;
        daemon.text = text.substr(static_cast<size_t>(written), static_cast<size_t>(until - written));
        if (life % 2)
            rotate();
        write();
        written = until;
        bool last = life == 9;
        int64_t lines = std::count(text.begin(), text.begin() + until, '\n');
        int64_t wanted = last ? lines : life % 3 == 1 ? 0 : lines_before;
        lines_before = lines;
        for (int tries = 0; tries < 600 && atoll(output_of(count_sql).c_str()) < wanted; ++tries)
            usleep(100000);
        kill(child, last ? SIGTERM : SIGKILL);
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_TRUE(last ? WIFEXITED(status) && WEXITSTATUS(status) == 0 : WIFSIGNALED(status));
    }
    EXPECT_EQ(output_of("sqlite3 " + database +
                        " 'SELECT sum(minutes) FROM day_use; SELECT sum(minutes) FROM session; "
                        "SELECT count(*) FROM session WHERE state<>1; SELECT value FROM count WHERE name=\"lost\"'"),
              std::to_string(minutes) + "\n" + std::to_string(minutes) + "\n0\n0\n");
}

} // namespace
