// Names, tables, sums and completion: what a person at a terminal meets.
#include "tests/system/appidentctl/scripted_daemon.h"

#include <filesystem>
#include <locale.h>
#include <stdio.h>
#include <time.h>

namespace {

TEST_F(tool, knows_devices_apps_and_classes_by_what_people_call_them)
{
    const struct {
        const char *words;
        const char *meant; // what is asked about, or said where it is not clear
    } cases[] = {
        {"A8-00-00-00-00-01", "\"A8-00-00-00-00-01\""},
        {"a800.0000.0001", "\"A8-00-00-00-00-01\""},
        {"ANN", "\"A8-00-00-00-00-01\""},
        {"bo", "\"A8-00-00-00-00-02\""},
        {"平板", "\"A8-00-00-00-00-03\""},
        {"Anne", "do you mean: Ann (A8-00-00-00-00-01)?"},
        {"b", "may be any of: Bob (A8-00-00-00-00-02), Ben (A8-00-00-00-00-04)"},
        {"192.168.1.9", "no device has the address"},
    };
    write_file("roster.json", R"({"devices":[{"mac":"A8-00-00-00-00-01","role":1,"name":"Ann","online":true},
        {"mac":"A8-00-00-00-00-02","name":"Bob"},{"mac":"A8-00-00-00-00-03","name":"小明的平板电脑"},
        {"mac":"A8-00-00-00-00-04","name":"Ben","address":"2001:db8::9"}]})");
    for (const auto &one : cases) {
        script.asked = "";
        outcome got = run(std::string("apps '") + one.words + "'");
        EXPECT_NE((script.asked + got.words).find(one.meant), std::string::npos) << one.words << script.asked << got.words;
    }
    // By the roster alone; the library would tell what the kernel knows.
    std::string ben = run("device 2001:DB8::09 --socket=$HOME_DIR/none").words;
    EXPECT_NE(ben.find("A8-00-00-00-00-04"), std::string::npos) << ben;
    for (const char *words : {"1", "games", "GAM"})
        EXPECT_NE(run(std::string("catalogue --class ") + words).words.find("1002  Blocks  games\n"), std::string::npos)
            << words;
    EXPECT_NE(run("catalogue --class e").words.find("any of: everything else, eye protection"), std::string::npos);
}

// As a person sees it on a wide and on a narrow terminal; a Chinese character takes two places.
TEST_F(tool, fits_tables_to_the_terminal)
{
    if (!setlocale(LC_CTYPE, "C.UTF-8"))
        GTEST_SKIP() << "this system has no UTF-8 locale, which knows how wide a character is";
    write_file("roster.json", R"({"devices":[{"mac":"A8-00-00-00-00-01","role":1,"name":"小明的平板电脑","online":true},
        {"mac":"A8-00-00-00-00-02","role":0,"name":"A\tb","online":false}]})");
    EXPECT_EQ(run("apps --all", "COLUMNS=80").words, "DEVICE          APP         SINCE        MINUTES\n"
                                                     "小明的平板电脑  1001 Video  11-14 22:13       12\n");
    EXPECT_EQ(run("apps --all", "COLUMNS=40").words, "DEVICE    APP       SINCE        MINUTES\n"
                                                     "小明的…   1001 Vi…  11-14 22:13       12\n");
    EXPECT_EQ(run("devices", "COLUMNS=80").words,
              "DEVICE          ADDRESS  ROLE                 ON LINE   APP NOW      TODAY\n"
              "小明的平板电脑  -        watched with limits  on line   1001 Video  12 min\n"
              "A?b             -        not watched          off line  -                -\n");
    EXPECT_EQ(run("devices", "COLUMNS=40").words, "DEVICE      ON LINE   APP NOW      TODAY\n"
                                                  "小明的平…   on line   1001 Video  12 min\n"
                                                  "A?b         off line  -                -\n");
    EXPECT_EQ(
        run("apps --all --json").words,
        R"({"apps":[{"mac":"A8-00-00-00-00-01","device":"小明的平板电脑","app_id":1001,"app":"Video","since":1700000000,"minutes":12}]})"
        "\n");
}

// A session over midnight counts from midnight on, and one that the day's end cut yesterday not at all.
TEST_F(tool, sums_up_today)
{
    time_t now = time(nullptr), midnight = now - now % 86400; // the tool runs in UTC
    timespec uptime = {};
    clock_gettime(CLOCK_BOOTTIME, &uptime);
    auto history = [](time_t when, time_t armed, int minutes) {
        return "{\"time\":" + std::to_string(when) + ",\"code\":1008,\"occur_time\":" + std::to_string(armed) +
               R"(,"data":{"endmac":"A8-00-00-00-00-01","appid":"1002","sumtime":")" + std::to_string(minutes * 60) + "\"}}\n";
    };
    write_file("pushes.jsonl.1", history(midnight - 100, 0, 1));
    write_file("pushes.jsonl", history(midnight + 120, 0, 50) + "half a line\n" +
                                   history(midnight + 180, uptime.tv_sec - (now - midnight) - 3600, 33) + history(now, 0, 1));
    time_t since = std::min<time_t>((now - midnight) / 60, 12); // what the daemon tells of the app in use
    std::string minutes = std::to_string(2 + (now >= midnight + 60 ? 1 : 0));
    std::string table = run("today ann").words, json = run("today --json").words;
    EXPECT_NE(table.find("Ann     1002 Blocks              games                   " + minutes + "\n"), std::string::npos)
        << table;
    EXPECT_NE(table.find("Ann     all of games                                     " + minutes + "\n"), std::string::npos)
        << table;
    EXPECT_NE(json.find(R"({"app_id":1001,"app":"Video","minutes":)" + std::to_string(since) + "}"), std::string::npos) << json;
    EXPECT_NE(json.find("\"complete_since\":" + std::to_string(midnight) + ","), std::string::npos) << json;
    EXPECT_NE(run("pushes --device ann --code history").words.find("1008 history    Ann  1002 Blocks  50 min"),
              std::string::npos);
    EXPECT_EQ(run("pushes --device bob").words + run("pushes --code limit --json").words, "");
    std::filesystem::remove(home + "/pushes.jsonl");
    std::filesystem::remove(home + "/pushes.jsonl.1");
    EXPECT_NE(run("today").words.find("what was before is not kept"), std::string::npos);
}

#ifdef HOME_PROGRAM
// The history that the real appident-home keeps, in every form; and today's, unless it ended long before the pushes.
TEST_F(tool, tells_what_a_device_used_on_a_day)
{
    int seq = 0;
    std::string lines;
    auto used = [&](const char *mac, int app, time_t end, int minutes) {
        lines += "{\"run\":\"00000000000000aa\",\"seq\":" + std::to_string(++seq) + ",\"time\":" + std::to_string(end) +
                 R"(,"code":1008,"data":{"endmac":")" + mac + R"(","alias":"=Old, phone","appid":")" + std::to_string(app) +
                 R"(","sumtime":")" + std::to_string(minutes * 60) + R"(","up_traffic":"100","down_traffic":"2000"}})" + "\n";
    };
    constexpr time_t day = 1699920000; // 2023-11-14
    used("A8-00-00-00-00-01", 1001, day + 7200, 20), used("A8-00-00-00-00-01", 1002, day + 9000, 25);
    seq += 3; // lost
    used("A8-00-00-00-00-01", 1002, day + 12000, 20), used("A8-00-00-00-00-09", 1001, day + 18000, 5);
    time_t now = time(nullptr);
    used("A8-00-00-00-00-09", 1002, now + 120, 2);
    write_file("spool", lines);
    ASSERT_EQ(system((HOME_PROGRAM " --database " + home + "/home.db --import " + home + "/spool").c_str()), 0);
    std::string program = HOME_PROGRAM, path = "PATH=" + program.substr(0, program.rfind('/')) + ":$PATH COLUMNS=";
    auto history = [&](const std::string &arguments, const char *columns = "80") {
        return run("history --database $HOME_DIR/home.db --day 2023-11-14 " + arguments, path + columns).words;
    };
    std::string foot = "Not all is known of 2023-11-14 02:30:00 to 2023-11-14 03:20:00: 3 pushes were lost.\n"
                       "Kept from 2023-11-14 02:00:00 to ";
    auto begins = [&](const std::string &words, const std::string &expected) {
        EXPECT_EQ(words.substr(0, expected.size()), expected);
    };
    begins(history("ann"), "Ann, 2023-11-14: 65 min\n"
                           "FROM   TO     MINUTES  APP          CLASS\n"
                           "01:40  02:00       20  1001 Video   video and social\n"
                           "02:05  02:30       25  1002 Blocks  games\n"
                           "03:00  03:20       20  1002 Blocks  games\n" +
                               foot);
    begins(history("ann --by app", "40"), "Ann, 2023-11-14: 65 min\n"
                                          "DAY         MINUTES  APP       CLASS\n"
                                          "2023-11-14       20  1001 Vi…  video an…\n"
                                          "2023-11-14       45  1002 Bl…  games\n" +
                                              foot);
    EXPECT_EQ(history("old --csv"), "mac,device,start,end,app_id,app,class,minutes,bytes,state\n"
                                    "A8-00-00-00-00-09,\"'=Old, phone\",2023-11-14 04:55:00,2023-11-14 05:00:00,1001,Video,"
                                    "video and social,5,2100,reported\n");
    EXPECT_NE(history("ann --json --by class")
                  .find(R"("days":[{"day":"2023-11-14","class_type":2,"class":"video and social",)"
                        R"("minutes":20,"bytes":2100},{"day":"2023-11-14","class_type":1,)"
                        R"("class":"games","minutes":45,"bytes":4200}],"gaps":[{"start":)"),
              std::string::npos);
    for (const char *words : {"history ann --database none", "today --database none"})
        EXPECT_EQ(run(words, path + "80").code, 3);
    std::string today = run("today old --database $HOME_DIR/home.db", path + "80").words;
    EXPECT_NE(today.find("=Old, phone  1002 Blocks   games        2\n"), std::string::npos) << today;
    write_file("pushes.jsonl", "{\"time\":" + std::to_string(now + 500) + ",\"code\":1008,\"data\":{}}\n");
    EXPECT_NE(run("today --database $HOME_DIR/home.db", path + "80").words.find("does appident-home run?"), std::string::npos);
    std::filesystem::remove(home + "/pushes.jsonl");
    outcome absent = run("history ann", "PATH=/usr/bin:/bin");
    EXPECT_NE(absent.words.find("Install the package appident-home"), std::string::npos) << absent.words;
    EXPECT_EQ(absent.code, 3);
}
#endif

// The completion compares and quotes what the tool offers; nothing of it is run.
TEST_F(tool, offers_words_to_the_shell)
{
    write_file("roster.json", R"json({"devices":[{"mac":"A8-00-00-00-00-01","name":"$(touch $HOME_DIR/run)"},
        {"mac":"$(touch $HOME_DIR/run)","name":"Ben's `touch $HOME_DIR/run` tablet"}]})json");
    auto complete = [](const std::string &words) {
        std::string command = "bash -c 'cd " + home + "; PATH=" + home +
                              ":$PATH; . " COMPLETION "; compopt() { echo files; };" + "COMP_WORDS=(appidentctl " + words +
                              "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _appidentctl; " +
                              "printf \"%s\\n\" \"${COMPREPLY[@]}\"'";
        FILE *pipe = popen(command.c_str(), "r");
        std::string out;
        for (int c = 0; (c = fgetc(pipe)) != EOF;)
            out += static_cast<char>(c);
        pclose(pipe);
        return out;
    };
    write_file("appidentctl", "#!/bin/sh\nexec " TOOL_COMMAND " --socket=" + home + "/none \"$@\"\n");
    std::filesystem::permissions(home + "/appidentctl", std::filesystem::perms::all);
    EXPECT_EQ(complete("st"), "status\n");
    EXPECT_EQ(complete("limits x --cl"), "--class\n");
    EXPECT_EQ(complete("limits x --class \"eye\""), "eye\\ protection\n");
    EXPECT_EQ(complete("--settings x limits A8"), "A8-00-00-00-00-01\n");
    EXPECT_EQ(complete("apps \"\\$\""), "\\$\\(touch\\ \\$HOME_DIR/run\\)\n");
    EXPECT_NE(complete("limits x --set \"\"").find("files"), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(home + "/run"));
}

} // namespace
