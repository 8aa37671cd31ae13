// What the commands do and how they fail, by exit code and words.
#include "tests/system/appidentctl/scripted_daemon.h"

#include <fstream>
#include <iterator>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

namespace {

std::string off(int from, int to)
{
    std::string text;
    for (int i = from; i <= to; i++)
        text += ",{\"class_type\":" + std::to_string(i) + ",\"onoff\":0,\"use_time\":0,\"appid\":[]}";
    return text;
}

TEST_F(tool, tells_wrong_command_lines_from_refusals_and_absence)
{
    write_file("other.json", R"({"device":"A8-00-00-00-00-09","data":[{"class_type":1}]})");
    const struct {
        const char *arguments;
        int code;
        const char *words;
    } cases[] = {
        {"--version", 0, "appidentctl 1."},
        {"version --json", 0, R"({"version":"1.)"},
        {"limits --help", 0, "--others-off"},
        {"help limits", 0, "--others-off"},
        {"help limits --json", 0, R"({"commands":[{"command":"limits","operand":"DEVICE",)"},
        {"limits --help --json", 0, R"({"option":"--minutes","value":"MINUTES","help":)"},
        {"help --json", 0, R"(,"options":[{"option":"--json","value":null,"help":)"},
        {"frob", 2, "'frob' is no command"},
        {"apps a8:00:00:00:00-01", 2, "no device is called"},
        {"apps a8:00:00:00:00:01 --follow", 2, "does not take --follow"},
        {"limits ann -json", 2, "limits does not take -j\n"},
        {"limits ann --set", 2, "--set lacks its value"},
        {"limits ann bob", 2, "'bob' is one word too many"},
        {"limits", 2, "limits needs a device"},
        {"limits ann --class 6 --minutes 1", 2, "none of 1 to 5"},
        {"limits ann --minutes 1", 2, "--minutes goes with --class"},
        {"limits ann --class games --minutes 1441 --apps 1001", 2, "no number of minutes up to 1440"},
        {"limits ann --class 1 --minutes 5 --apps 1001,,2", 2, "no app is called ''"},
        {"limits ann --class 1 --minutes 5 --apps 1003", 2, "holds no app 1003"},
        {"limits ann --set $HOME_DIR/missing.json", 2, "holds no JSON"},
        {"limits ann --set $HOME_DIR/other.json", 2, "another device"},
        {"payments ann --set weixin=maybe", 2, "each =on or =off"},
        {"payments ann", 1, "nothing is stored"},
        {"pushes --code frob", 2, "wants history"},
        {"pushes --device nobody", 2, "no device is called 'nobody'"},
        {"device ann --role 3", 2, "none of 0, 1 and 2"},
        {"device ann --role 0 </dev/null", 1, "say --yes"},
        {"apps ann --socket $HOME_DIR/none", 3, "no socket at"},
        {"apps ann --socket $HOME_DIR/roster.json", 3, "not a socket"},
        {"help >/dev/full", 6, ""},
    };
    for (const auto &one : cases) {
        outcome got = run(one.arguments);
        EXPECT_EQ(got.code, one.code) << one.arguments << "\n" << got.words;
        EXPECT_NE(got.words.find(one.words), std::string::npos) << one.arguments << "\n" << got.words;
    }
    std::string many_apps = "1,\"appid\":[1";
    for (int i = 2; i <= 257; i++)
        many_apps += "," + std::to_string(i);
    for (const std::string &limit : {std::string("0"), std::string("6"), std::string("\"1\""),
                                     std::string("1},{\"class_type\":1"), std::string("1,\"onoff\":2"),
                                     std::string("1,\"use_time\":1.5"), std::string("1,\"appid\":[70000]"), many_apps + "]"}) {
        write_file("limits.json", "[{\"class_type\":" + limit + "}]");
        EXPECT_EQ(run("limits ann --set $HOME_DIR/limits.json").code, 2) << limit;
    }
    EXPECT_EQ(script.limits, "") << "a wrong command line was carried out";
}

TEST_F(tool, has_every_command_and_option_in_its_manual)
{
    std::ifstream file(MANUAL);
    std::string manual((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    std::istringstream help(run("help").words);
    size_t commands = 0;
    for (std::string line; std::getline(help, line) && line != "Options of every command:";) {
        std::istringstream words(line);
        std::string name, option;
        if (line.compare(0, 2, "  ") != 0 || !(words >> name))
            continue;
        commands++;
        EXPECT_NE(manual.find(".It Cm " + name), std::string::npos) << name;
        std::istringstream options(run("help " + name).words);
        for (std::string row; std::getline(options, row);)
            if (row.compare(0, 4, "  --") == 0) {
                std::istringstream(row.substr(4)) >> option;
                EXPECT_NE(manual.find("Fl Fl " + option), std::string::npos) << name << " --" << option;
            }
    }
    EXPECT_GE(commands, 12u);
}

TEST_F(tool, says_starting_while_nothing_is_served)
{
    set("serving", 0);
    for (const char *arguments : {"apps ann --timeout 0.1", "doctor"}) {
        outcome got = run(arguments);
        EXPECT_EQ(got.code, 3);
        EXPECT_NE(got.words.find("starting"), std::string::npos) << got.words;
    }
    EXPECT_EQ(script.asked, "");
    EXPECT_EQ(run("status").code, 0);
}

TEST_F(tool, always_writes_five_limits_and_keeps_the_others)
{
    const std::string begin = "{\"device\":\"A8-00-00-00-00-01\",\"data\":[";
    outcome got = run("limits ann --class games --minutes 60 --apps Video,1002");
    EXPECT_EQ(got.code, 0) << got.words;
    EXPECT_EQ(script.limits, begin + R"({"class_type":1,"onoff":1,"use_time":60,"appid":[1001,1002]})" + off(2, 5) + "]}");
    EXPECT_NE(got.words.find("on          60  1001 Video, 1002 Blocks\n"), std::string::npos) << got.words;

    EXPECT_EQ(run("limits a80000000001 --class 5 --minutes 30").code, 0);
    EXPECT_EQ(run("limits a80000000001 --class 1 --off").code, 0);
    EXPECT_EQ(script.limits, begin + R"({"class_type":1,"onoff":0,"use_time":60,"appid":[1001,1002]})" + off(2, 4) +
                                 R"(,{"class_type":5,"onoff":1,"use_time":30,"appid":[]}]})");
    write_file("limits.json", R"([{"class_type":4,"onoff":1,"use_time":0,"appid":[7],"note":"kept"}])");
    EXPECT_EQ(run("limits ann --json --set $HOME_DIR/limits.json").code, 0);
    EXPECT_NE(run("limits ann --json")
                  .words.find(R"({"class_type":4,"class":"learning","on":true,"minutes":0,"apps":[{"app_id":7,"app":""}]})"),
              std::string::npos);
    EXPECT_EQ(script.limits, begin + off(1, 3).substr(1) +
                                 R"(,{"class_type":4,"onoff":1,"use_time":0,"appid":[7],"note":"kept"})" + off(5, 5) + "]}");
    EXPECT_EQ(run("limits ann --class games --minutes 5 --apps all").code, 0);
    EXPECT_NE(script.limits.find(R"({"class_type":1,"onoff":1,"use_time":5,"appid":[1002]})"), std::string::npos);
}

// The daemon reports success for a device of role 0 and stores nothing, and shows limits for role 1 only.
TEST_F(tool, does_not_take_success_for_stored)
{
    const struct {
        int role;
        const char *arguments;
        int code;
        bool stored;
    } cases[] = {
        {0, "limits a80000000001 --class 1 --minutes 5", 1, false},
        {0, "payments a80000000001 --all-off", 1, false},
        {2, "limits a80000000002 --class 1 --minutes 5", 1, false}, // by the roster; what cannot be read
        {2, "limits a80000000003 --class 1 --minutes 5", 1, false}, // is not overwritten
        {2, "limits a80000000003 --class 1 --minutes 5 --others-off", 1, true},
        {2, "limits a80000000001 --class 1 --minutes 5", 1, true}, // role 1 by the roster: nothing is stored yet
    };
    for (const auto &one : cases) {
        script.role = one.role;
        script.limits = "";
        EXPECT_EQ(run(one.arguments).code, one.code) << one.arguments;
        EXPECT_EQ(script.limits != "", one.stored) << one.arguments;
    }
}

TEST_F(tool, switches_payments)
{
    EXPECT_EQ(run("payments a80000000001 --set alipay=off,qqpay=0 --json").words,
              R"({"mac":"A8-00-00-00-00-01","enable":true,"weixin":true,"alipay":false,"qqpay":false,"applepay":true})"
              "\n");
    EXPECT_STREQ(script.switches.mac, "A8-00-00-00-00-01");
    EXPECT_EQ(run("payments a80000000001 --set alipay=on").code, 0);
    EXPECT_EQ(script.switches.alipay + script.switches.qqpay, 1u) << "the others stay as stored";
    run("payments a80000000001 --all-off");
    EXPECT_NE(run("payments a80000000001").words.find("weixin    off    WeChat Pay"), std::string::npos);
}

TEST_F(tool, shows_every_counter)
{
    set("traffic_undecodable", 4);
    feed_says({{feed_flows, 10}, {feed_flows_by_hello, 6}, {feed_flows_unknown, 2}, {feed_log_lost, 5}});
    std::string feed = run("status").words;
    EXPECT_NE(feed.find("10 connections, 75 % told (hello 6, dns 0, dpi 0, address 0), 25 % unknown; 0 messages sent\n"),
              std::string::npos)
        << feed;
    EXPECT_NE(feed.find("not seen  5 packets lost\n"), std::string::npos) << feed;
    std::string json = run("status --json").words, owner = "\"owner\":" + std::to_string(getpid()),
                table = run("status --all").words;
    for (const std::string &words :
         {"\"state\":\"serving\"" + std::string(), "counters\"," + owner, "platform.counters\"," + owner,
          std::string("\"traffic_undecodable\":4,"), std::string("\"requests_served\":"), std::string("\"flows_by_hello\":6,")})
        EXPECT_NE(json.find(words), std::string::npos) << words << json;
    for (const char *words : {"    4    accounting without all its attributes\n", "never  last push\n", "    0  a_new_one\n",
                              " 6    told by the name in a TLS"})
        EXPECT_NE(table.find(words), std::string::npos) << words << table;
    pid_t child = fork();
    if (child == 0) {
        counter_page_create((home + "/counters").c_str(), page);
        _exit(0);
    }
    waitpid(child, nullptr, 0);
    outcome gone = run("status");
    EXPECT_EQ(gone.code, 3);
    EXPECT_NE(gone.words.find("gone"), std::string::npos);
}

} // namespace
