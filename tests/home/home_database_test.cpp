// The database through damage, power cuts, copies and years.
#include "home/app_names.h"
#include "home/days.h"
#include "home/devices.h"
#include "home/home_settings.h"
#include "home/joining.h"
#include "home/queries.h"
#include "home/schema.h"
#include "home/upkeep.h"
#include "tests/home/daemon_voice.h"
#include "tests/home/power_cut.h"
#include "tests/kit/waiting.h"

#include <sys/stat.h>
#include <thread>

namespace {

struct home_database : history_test {
    void play(int sessions)
    {
        int64_t start = evening;
        for (; sessions > 0; --sessions, start = daemon.time + 60)
            daemon.whole_session(tablet, video, start, 10);
        take();
    }
    std::string contents() { return text_of(path) + text_of(path + "-wal"); }
};

TEST_F(home_database, damaged_one_is_set_aside_and_a_new_one_begun)
{
    play(3);
    close_history(&all);
    const std::string good = contents();
    const std::string damages[] = {"this is no database", good.substr(0, 4096) + std::string(good.size() - 4096, '\xa5')};
    for (const std::string &damage : damages) {
        write_file(path, damage);
        ASSERT_TRUE(begin());
        EXPECT_NE(all.db.set_aside, "");
        EXPECT_EQ(access(all.db.set_aside.c_str(), F_OK), 0);
        EXPECT_EQ(session_minutes(), 0);
        play(1);
        EXPECT_EQ(session_minutes(), 10);
        close_history(&all);
    }
}

TEST_F(home_database, damage_that_is_met_while_it_is_open_is_noticed)
{
    play(200);
    ASSERT_TRUE(commit_batch(&all.db));
    sqlite3_exec(all.db.handle, "PRAGMA wal_checkpoint(TRUNCATE); PRAGMA shrink_memory", nullptr, nullptr, nullptr);
    std::string good = contents();
    write_file(path, good.substr(0, 1024) + std::string(good.size() - 1024, '\xa5'));
    play(1);
    EXPECT_FALSE(commit_batch(&all.db));
    EXPECT_TRUE(all.db.damaged);
    close_history(&all);
    begin();
    EXPECT_NE(all.db.set_aside, "");
}

TEST_F(home_database, one_that_another_program_holds_is_waited_for)
{
    close_history(&all);
    sqlite3 *other = nullptr;
    sqlite3_open(path.c_str(), &other);
    sqlite3_exec(other, "PRAGMA locking_mode=EXCLUSIVE; BEGIN EXCLUSIVE", nullptr, nullptr, nullptr);
    std::thread holder([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(3500)); // SQLite itself would have given up
        sqlite3_close(other);
    });
    EXPECT_TRUE(begin());
    holder.join();
}

TEST_F(home_database, newer_one_is_refused_and_left_alone)
{
    sqlite3_exec(all.db.handle, "PRAGMA user_version=4711", nullptr, nullptr, nullptr);
    close_history(&all);
    std::string why;
    EXPECT_FALSE(open_history(&all, path, {}, &why));
    EXPECT_NE(why.find("newer"), std::string::npos);
    EXPECT_EQ(output_of("sqlite3 " + path + " 'PRAGMA user_version'"), "4711\n");
    output_of("sqlite3 " + path + " 'PRAGMA user_version=" + std::to_string(schema_version()) + "'");
    begin();
}

TEST_F(home_database, backup_and_restore_bring_back_what_was)
{
    play(3);
    commit_batch(&all.db);
    std::string why, copy = directory.file("copy.db");
    ASSERT_TRUE(backup_database(path, copy, &why)) << why;
    EXPECT_EQ(output_of("sqlite3 " + copy + " 'PRAGMA integrity_check; SELECT sum(minutes) FROM day_use'"), "ok\n30\n");
    struct stat about;
    ASSERT_EQ(stat(copy.c_str(), &about), 0);
    EXPECT_EQ(about.st_mode & 077, 0u); // nobody else's business
    play(2);
    close_history(&all);
    write_file(directory.file("text"), "no database");
    std::string damaged = contents().substr(0, 8192) + std::string(8192, 'x');
    write_file(directory.file("damaged"), damaged);
    output_of("sqlite3 " + directory.file("foreign") + " 'CREATE TABLE session(a); PRAGMA user_version=1'");
    for (const char *wrong : {"text", "damaged", "foreign", "missing"})
        EXPECT_FALSE(restore_database(path, directory.file(wrong), &why)) << wrong;
    EXPECT_EQ(output_of("sqlite3 " + path + " 'SELECT sum(minutes) FROM session'"), "50\n");
    EXPECT_TRUE(restore_database(path, copy, &why)) << why;
    begin();
    EXPECT_EQ(session_minutes(), 30);
    // The spool is read again from where the copy was made; what it holds twice is not taken twice.
    EXPECT_EQ(all.place.run, daemon.run);
}

TEST_F(home_database, two_programs_do_not_write_to_it)
{
    fd_guard lock(lock_database(path));
    ASSERT_GE(lock.get(), 0);
    for (const char *option : {"--import /dev/null", "--restore /dev/null", "--forget AA-BB-CC-DD-EE-01", ""}) {
        int status = 0;
        output_of("timeout 20 " HOME_PROGRAM " --settings /none --database " + path + " " + option + " 2>&1", &status);
        EXPECT_EQ(WEXITSTATUS(status), 3) << option;
    }
}

TEST_F(home_database, forgotten_device_leaves_nothing)
{
    play(3);
    daemon.whole_session(phone, chat, daemon.time + 60, 5);
    daemon.say(1015, std::string("{\"endmac\":\"") + tablet + "\",\"class_type\":\"1\",\"use_time\":\"30\"}");
    take();
    add_change(&all, {evening, "mother", "", tablet, "limit", "", "60"});
    commit_batch(&all.db);
    ASSERT_NE(contents().find(tablet), std::string::npos);
    EXPECT_TRUE(forget_device(&all, tablet));
    EXPECT_FALSE(forget_device(&all, tablet));
    EXPECT_EQ(contents().find(tablet), std::string::npos);
    EXPECT_EQ(contents().find("Ben's tablet"), contents().rfind("Ben's tablet")) << "only the phone has that name now";
    EXPECT_EQ(session_minutes(), 5);
    EXPECT_EQ(day_minutes(), 5);
    EXPECT_EQ(value_of("SELECT count(*) FROM alert"), 0);
}

TEST_F(home_database, old_sessions_go_and_the_days_sums_stay)
{
    play(3);
    int64_t day = 86400;
    device_row(&all, "AA-BB-CC-DD-EE-99", evening); // a visitor's, of which nobody says anything
    commit_batch(&all.db);
    drop_old_rows(&all, evening + 3652 * day, 90, 10); // a wrong clock: the last push came that evening
    auto drop = [&](int64_t time) { drop_old_rows(&all, all.place.last_time = time, 90, 10); };
    drop(evening + 90 * day);
    EXPECT_EQ(session_minutes(), 30);
    int64_t devices = value_of("SELECT count(*) FROM device");
    drop(evening + 92 * day);
    EXPECT_EQ(session_minutes(), 0);
    EXPECT_EQ(value_of("SELECT count(*) FROM device"), devices - 1);
    EXPECT_EQ(day_minutes(), 30);
    drop(evening + 3652 * day);
    EXPECT_EQ(day_minutes(), 0);
}

TEST_F(home_database, power_cut_takes_no_more_than_what_waited_for_its_commit)
{
    close_history(&all);
    output_of("rm -f " + path + "*");
    const char *vfs = register_power_cut_vfs();
    int64_t committed = 0;
    for (int cut = 0; cut < 8; ++cut) {
        ASSERT_TRUE(begin(vfs));
        EXPECT_EQ(all.db.set_aside, "");
        EXPECT_EQ(session_minutes(), committed);
        EXPECT_EQ(value_of("SELECT count(*)<>1 FROM pragma_integrity_check WHERE integrity_check='ok'"), 0);
        play(1 + cut);
        daemon.time += 86400;
        if (cut % 3 != 2) {
            ASSERT_TRUE(commit_batch(&all.db));
            committed = session_minutes();
        }
        if (cut == 4)
            sqlite3_exec(all.db.handle, "PRAGMA wal_checkpoint(PASSIVE)", nullptr, nullptr, nullptr);
        play(2); // waits for its commit
        cut_power();
        roll_back(&all.db);
        close_history(&all);
        restore_power(path);
    }
    EXPECT_GT(committed, 0);
    begin();
    EXPECT_EQ(session_minutes(), committed);
}

TEST_F(home_database, full_disk_loses_nothing_that_is_read_again)
{
    play(1);
    ASSERT_TRUE(commit_batch(&all.db));
    sqlite3_exec(all.db.handle, "PRAGMA max_page_count=1", nullptr, nullptr, nullptr); // no page more than there are
    play(400);
    EXPECT_FALSE(commit_batch(&all.db));
    reload_history(&all);
    EXPECT_EQ(session_minutes(), 10);
    EXPECT_EQ(all.place.last, value_of("SELECT value FROM meta WHERE key='seq'"));
}

TEST_F(home_database, settings_out_of_bounds_are_the_defaults)
{
    write_file(directory.file("home.json"), R"({"database":"/tmp/x.db","port":70000,"commit_interval":300,"session_days":"many",
                                               "mqtt":{"broker":"localhost"}})");
    home_settings settings;
    ASSERT_TRUE(read_home_settings(directory.file("home.json").c_str(), &settings));
    EXPECT_EQ(settings.database, "/tmp/x.db");
    EXPECT_EQ(settings.port, 8480);
    EXPECT_EQ(settings.commit_interval, 300);
    EXPECT_EQ(settings.session_days, 90);
    EXPECT_TRUE(cJSON_HasObjectItem(settings.tree.get(), "mqtt"));
    write_file(directory.file("home.json"), "no JSON");
    EXPECT_FALSE(read_home_settings(directory.file("home.json").c_str(), &settings));
}

TEST_F(home_database, apps_have_the_names_and_classes_of_the_catalogue)
{
    app_names apps;
    std::vector<std::string> paths = {directory.file("installed.json"), directory.file("catalogue.json")};
    write_file(paths[0], R"({"data":[{"class_type":"1","appid":[1001,1003]}],"names":{"1001":"Film","1003":"Chess"}})");
    refresh_app_names(&apps, paths);
    EXPECT_EQ(app_name(apps, video), "Film");
    unlink(paths[0].c_str());
    refresh_app_names(&apps, paths);
    EXPECT_EQ(app_name(apps, video), "1001");
    write_file(directory.file("catalogue.json"),
               R"({"data":[{"class_type":"2","appid":[1001,-5,"x"]},7],"names":{"1001":"Video\n","1002":8}})");
    write_file(paths[0], R"({"data":[{"class_type":"1","appid":[1001,1003]}],"names":{"1001":"Film","1003":"Chess"}})");
    refresh_app_names(&apps, paths);
    EXPECT_EQ(app_name(apps, video), "Video?");
    EXPECT_EQ(app_name(apps, 1003) + std::to_string(app_class(apps, 1003)), "Chess1");
    EXPECT_EQ(app_class(apps, video), 2);
    EXPECT_EQ(app_class(apps, chat), 0);
}

} // namespace
