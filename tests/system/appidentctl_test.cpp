// The tool as a shell sees it: its words and exit codes, against a scripted daemon behind the real request server.
#include "common/counter_page.h"
#include "common/guards.h"
#include "common/sec_plg_common.h"
#include "igd/igd_lib.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <poll.h>
#include <string.h>
#include <sys/wait.h>
#include <thread>
#include <utime.h>

namespace {

std::string home; // a directory of this run

void write_file(const std::string &name, const std::string &text)
{
    std::ofstream(home + "/" + name) << text;
}

struct outcome {
    int code;
    std::string words; // standard output and error
};

// What the scripted daemon knows; one device, whatever its MAC.
struct daemon_script {
    std::mutex held; // shows the server's thread and the test's what the other wrote: the tool's process stands between them
    int role = 1;
    std::string limits, asked;
    appident_payment_notify_st switches = {}; // without a MAC: none are stored
} script;
const std::string success = "{\"err_no\":\"0\",\"err_msg\":\"success\",";

outcome run(const std::string &arguments)
{
    script.held.lock(), script.held.unlock();
    std::string command =
        "TZ=UTC " TOOL_COMMAND " --socket=" + home + "/ipc --counters=" + home + "/counters " + arguments + " 2>&1";
    FILE *pipe = popen(command.c_str(), "r");
    outcome out = {-1, ""};
    for (int c = 0; (c = fgetc(pipe)) != EOF;)
        out.words += static_cast<char>(c);
    out.code = WEXITSTATUS(pclose(pipe));
    std::lock_guard<std::mutex> lock(script.held);
    return out;
}

std::string report(unsigned int id, const std::string &asked)
{
    std::string apps = "\"data\":[{\"appid\":1001,\"starttime\":1700000000,\"endtime\":0,\"sumtime\":12}";
    apps += id % 2 ? ",{\"appid\":7,\"starttime\":1700000700,\"endtime\":0,\"sumtime\":0}]}" : "]}";
    if (id <= APPIDENT_GET_CUR_DEVICE_APP_FOR_ROM)
        return asked == "AA-00-00-00-00-01" ? success + apps : "";
    return success + "\"results\":[{\"device\":\"AA-00-00-00-00-01\"," + apps + "]}";
}

int serve_switches(unsigned int id, appident_payment_notify_st *switches, uintptr_t action)
{
    if (id == APPIDENT_GET_PAYMENT_CONFIG) {
        *switches = script.switches;
        return script.switches.mac[0] && action == 1 ? 0 : -1;
    }
    if (script.role)
        script.switches = *switches;
    if (script.role && action == 3)
        memset(&script.switches.enable, 0, 5 * sizeof(u32));
    return 0;
}

int serve(unsigned int id, void *pa, void *pb, void *pc)
{
    std::lock_guard<std::mutex> lock(script.held);
    if (id >= APPIDENT_SET_PAYMENT_CONFIG)
        return serve_switches(id, static_cast<appident_payment_notify_st *>(pa), reinterpret_cast<uintptr_t>(pb));
    script.asked = static_cast<char *>(pb);
    std::string answer;
    if (id == APPIDENT_SET_DEVICE_APP_LIST_USE_TIME) {
        script.limits = script.role ? static_cast<char *>(pa) : "";
        return 0;
    } else if (id != APPIDENT_GET_DEVICE_APP_LIST_USE_TIME) {
        answer = report(id, script.asked);
    } else if (script.role != 1) {
        return -1;
    } else if (!script.limits.empty()) {
        answer = success + script.limits.substr(script.limits.find("\"data\""));
    }
    auto *room = static_cast<unsigned int *>(pc);
    snprintf(static_cast<char *>(pa), *room, "%s", answer.c_str());
    *room = static_cast<unsigned int>(answer.size());
    return 0;
}

const char *const counter_names[] = {"serving",      "started_uptime", "traffic_messages", "traffic_undecodable",
                                     "traffic_lost", "hits_tracked",   "hits_unknown_mac", "last_hit_time",
                                     "pushes",       "last_push_time", "app_table_full",   "a_new_one"};
std::atomic<u32> values[std::size(counter_names)];
counter_page page = {counter_names, values, std::size(counter_names), -1};

void set(const char *name, u32 value)
{
    for (size_t i = 0; i < std::size(counter_names); i++)
        if (strcmp(counter_names[i], name) == 0)
            values[i] = value;
    counter_page_write(page);
}

class tool : public testing::Test {
protected:
    void SetUp() override
    {
        std::lock_guard<std::mutex> lock(script.held);
        script.role = 1;
        script.limits = script.asked = "";
        script.switches = {};
        for (std::atomic<u32> &value : values)
            value = 0;
        page.fd = counter_page_create((home + "/counters").c_str(), page);
        ASSERT_GE(page.fd, 0);
        set("serving", 1);
        write_file("roster.json", R"({"devices":[{"mac":"AA-00-00-00-00-01","role":1,"name":"Ann"},
            {"mac":"AA-00-00-00-00-02","role":2,"name":"Bob","online":false}]})");
    }
};

std::string off(int from, int to)
{
    std::string text;
    for (int i = from; i <= to; i++)
        text += ",{\"class_type\":" + std::to_string(i) + ",\"onoff\":0,\"use_time\":0,\"appid\":[]}";
    return text;
}

TEST_F(tool, tells_wrong_command_lines_from_refusals_and_absence)
{
    write_file("other.json", R"({"device":"AA-00-00-00-00-09","data":[{"class_type":1}]})");
    const struct {
        const char *arguments;
        int code;
        const char *words;
    } cases[] = {
        {"--version", 0, "appidentctl 1."},
        {"limits --help", 0, "--others-off"},
        {"frob", 2, "'frob' is no command"},
        {"apps aa:00:00:00:00-01", 2, "is no MAC"},
        {"apps aa:00:00:00:00:01 --follow", 2, "does not take --follow"},
        {"limits aa0000000001 --class 6 --minutes 1", 2, "none of 1 to 5"},
        {"limits aa0000000001 --minutes 1", 2, "go with --class"},
        {"limits aa0000000001 --class 1 --minutes 5 --apps 1,,2", 2, "no app id"},
        {"limits aa0000000001 --set $HOME_DIR/missing.json", 2, "holds no JSON"},
        {"limits aa0000000001 --set $HOME_DIR/other.json", 2, "another device"},
        {"payments aa0000000001 --set weixin=maybe", 2, "each =on or =off"},
        {"payments aa0000000001", 1, "nothing is stored"},
        {"apps aa0000000001 --socket $HOME_DIR/none", 3, "no socket at"},
        {"apps aa0000000001 --socket $HOME_DIR/roster.json", 3, "not a socket"},
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
        EXPECT_EQ(run("limits aa0000000001 --set $HOME_DIR/limits.json").code, 2) << limit;
    }
    EXPECT_EQ(script.limits, "") << "a wrong command line was carried out";
}

TEST_F(tool, says_starting_while_nothing_is_served)
{
    set("serving", 0);
    for (const char *arguments : {"apps aa0000000001 --timeout 0.1", "doctor"}) {
        outcome got = run(arguments);
        EXPECT_EQ(got.code, 3);
        EXPECT_NE(got.words.find("starting"), std::string::npos) << got.words;
    }
    EXPECT_EQ(script.asked, "");
    EXPECT_EQ(run("status").code, 0);
}

TEST_F(tool, shows_apps_by_name)
{
    const std::string table = "DEVICE                  APP         SINCE                MINUTES\n"
                              "AA-00-00-00-00-01  Ann  1001 Video  2023-11-14 22:13:20       12\n";
    for (const char *mac : {"AA-00-00-00-00-01", "aa:00:00:00:00:01", "aa00.0000.0001", "aa0000000001"})
        EXPECT_EQ(run(std::string("apps ") + mac).words, table) << mac;
    EXPECT_EQ(run("apps --all").words, table);
    EXPECT_EQ(script.asked, "{\"device\":[\"AA-00-00-00-00-01\"]}") << "those on line only";
    EXPECT_NE(run("apps --devices=aa0000000001,aa0000000003 --rom").words.find("7           2023-11-14 22:25:00        0"),
              std::string::npos);
    EXPECT_EQ(run("apps aa0000000001 --json").words, report(6, "AA-00-00-00-00-01") + "\n");
    EXPECT_EQ(run("apps aa0000000003 --json").words, "{\"err_no\":\"0\",\"err_msg\":\"success\",\"data\":null}\n");
    EXPECT_NE(run("apps aa0000000003").words.find("not on line"), std::string::npos);
}

TEST_F(tool, always_writes_five_limits_and_keeps_the_others)
{
    const std::string begin = "{\"device\":\"AA-00-00-00-00-01\",\"data\":[";
    outcome got = run("limits aa0000000001 --class 1 --minutes 60 --apps 1001,7");
    EXPECT_EQ(got.code, 0) << got.words;
    EXPECT_EQ(script.limits, begin + R"({"class_type":1,"onoff":1,"use_time":60,"appid":[1001,7]})" + off(2, 5) + "]}");
    EXPECT_NE(got.words.find("on          60  1001 Video, 7\n"), std::string::npos) << got.words;

    EXPECT_EQ(run("limits aa0000000001 --class 5 --minutes 30").code, 0);
    EXPECT_EQ(run("limits aa0000000001 --class 1 --off").code, 0);
    EXPECT_EQ(script.limits, begin + R"({"class_type":1,"onoff":0,"use_time":60,"appid":[1001,7]})" + off(2, 4) +
                                 R"(,{"class_type":5,"onoff":1,"use_time":30,"appid":[]}]})");
    write_file("limits.json", R"([{"class_type":4,"onoff":1,"use_time":0,"appid":[7],"note":"kept"}])");
    EXPECT_EQ(run("limits aa0000000001 --json --set $HOME_DIR/limits.json").words,
              "{\"err_no\":\"0\",\"err_msg\":\"success\",\"data\":[" + off(1, 3).substr(1) +
                  ",{\"class_type\":4,\"onoff\":1,\"use_time\":0,\"appid\":[7],\"note\":\"kept\"}" + off(5, 5) + "]}\n");
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
        {0, "limits aa0000000001 --class 1 --minutes 5", 1, false},
        {0, "payments aa0000000001 --all-off", 1, false},
        {2, "limits aa0000000002 --class 1 --minutes 5", 1, false}, // by the roster; what cannot be read
        {2, "limits aa0000000003 --class 1 --minutes 5", 1, false}, // is not overwritten
        {2, "limits aa0000000003 --class 1 --minutes 5 --others-off", 1, true},
        {2, "limits aa0000000001 --class 1 --minutes 5", 1, true}, // role 1 by the roster: nothing is stored yet
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
    EXPECT_EQ(run("payments aa0000000001 --set alipay=off,qqpay=0 --json").words,
              "{\"device\":\"AA-00-00-00-00-01\",\"enable\":1,\"weixin\":1,\"alipay\":0,\"qqpay\":0,\"applepay\":1}\n");
    EXPECT_STREQ(script.switches.mac, "AA-00-00-00-00-01");
    EXPECT_EQ(run("payments aa0000000001 --set alipay=on").code, 0);
    EXPECT_EQ(script.switches.alipay + script.switches.qqpay, 1u) << "the others stay as stored";
    run("payments aa0000000001 --all-off");
    EXPECT_NE(run("payments aa0000000001").words.find("weixin    off    WeChat Pay"), std::string::npos);
}

TEST_F(tool, shows_every_counter)
{
    set("traffic_undecodable", 4);
    std::string json = run("status --json").words, owner = "\"owner\":" + std::to_string(getpid()), table = run("status").words;
    for (const std::string &words :
         {"\"state\":\"serving\"" + std::string(), "counters\"," + owner, "platform.counters\"," + owner,
          std::string("\"traffic_undecodable\":4,"), std::string("\"requests_served\":")})
        EXPECT_NE(json.find(words), std::string::npos) << words << json;
    for (const char *words : {"    4    accounting without all its attributes\n", "never  last push\n", "    0  a_new_one\n"})
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

// "name level" of each check that is not ok.
std::string complaints(const std::string &json)
{
    json_tree root(cJSON_Parse(json.c_str()));
    std::string all;
    const cJSON *one = nullptr;
    cJSON_ArrayForEach(one, cJSON_GetObjectItem(root.get(), "checks")) {
        std::string level = cJSON_GetObjectItem(one, "level")->valuestring;
        EXPECT_EQ(level == "ok", !*cJSON_GetObjectItem(one, "advice")->valuestring) << json;
        if (level != "ok")
            all += std::string(cJSON_GetObjectItem(one, "check")->valuestring) + " " + level + ";";
    }
    return all;
}

TEST_F(tool, finds_out_why_there_is_no_data)
{
    write_file("wrong.json", "{\"lan_interface\":\"nolan0\",\"state_dir\":\"" + home + "\",\"runtime_dir\":\"" + home + "\"}");
    write_file("junk.json", "{\"lan_interface\":\"lo\",\"state_dir\":\"" + home + "\",\"socket_group\":\"no such group\"}");
    write_file("gone.json", "{\"lan_interface\":\"lo\",\"state_dir\":\"" + home + "/none\",\"runtime_dir\":\"" + home + "\"}");
    utimbuf long_ago = {1700000000, 1700000000};
    const struct {
        void (*spoil)();
        const char *options;
        int code;
        const char *expected; // beside the loopback's lack of neighbours
    } cases[] = {
        {[] {}, "", 4, ""},
        {[] { set("traffic_messages", 0); }, "", 5, "traffic fault;"},
        {[] { set("hits_tracked", 0); }, "", 5, "records fault;"},
        {[] { set("last_hit_time", static_cast<u32>(time(nullptr)) + 4000); }, "", 4, "clock warning;"},
        {[] {
             for (const char *name : {"traffic_undecodable", "hits_unknown_mac", "traffic_lost", "app_table_full"})
                 set(name, 3);
             set("pushes", 0), set("last_hit_time", static_cast<u32>(time(nullptr)) - 4000);
         },
         "", 4, "decoding warning;unknown MACs warning;losses warning;records warning;tables warning;pushes warning;"},
        {[] { write_file("roster.json", R"({"devices":[{"mac":"AA-00-00-00-00-01","role":0}]})"); }, "", 5, "devices fault;"},
        {[] {}, "--settings=$HOME_DIR/wrong.json", 5, "LAN fault;"},
        {[] {}, "--settings=$HOME_DIR/junk.json", 5, "settings fault;"},
        {[] {}, "--settings=$HOME_DIR/gone.json", 5, "devices fault;disk fault;"},
        {[] {}, "--log=$HOME_DIR/old.log", 5, "log fault;"},
        {[] { std::filesystem::remove(home + "/counters"); }, "--socket=$HOME_DIR/none", 3, "daemon fault;socket fault;"},
    };
    for (const auto &one : cases) {
        SetUp();
        write_file("log", "a line\n");
        write_file("old.log", "a line\n");
        utime((home + "/old.log").c_str(), &long_ago);
        for (const char *name : {"traffic_messages", "hits_tracked", "pushes"})
            set(name, 5);
        set("last_hit_time", static_cast<u32>(time(nullptr)));
        one.spoil();
        outcome got = run("doctor --json --log=$HOME_DIR/log " + std::string(one.options));
        std::string found = complaints(got.words);
        size_t neighbours = found.find("neighbours warning;");
        ASSERT_NE(neighbours, std::string::npos) << got.words;
        EXPECT_EQ(found.erase(neighbours, strlen("neighbours warning;")), one.expected) << got.words;
        EXPECT_EQ(got.code, one.code) << got.words;
    }
}

} // namespace

int main(int argc, char **argv)
{
    testing::InitGoogleTest(&argc, argv);
    char directory[] = "/tmp/appidentctl.XXXXXX";
    home = mkdtemp(directory);
    write_file("settings.json", "{\"lan_interface\":\"lo\",\"state_dir\":\"" + home + "\",\"runtime_dir\":\"" + home + "\"}");
    write_file("catalogue.json", "{\"data\":[],\"names\":{\"1001\":\"Video\"}}");
    setenv("HOME_DIR", home.c_str(), 1);
    setenv("APPIDENT_PLATFORM_SETTINGS", (home + "/settings.json").c_str(), 1);
    int server = nt_ipcserver_init2((home + "/ipc").c_str(), serve);
    std::atomic<bool> over{false};
    std::thread daemon([&] {
        while (!over) {
            pollfd ready = {server, POLLIN, 0};
            if (poll(&ready, 1, 50) == 1)
                ipc_server_accept2();
        }
    });
    int failed = RUN_ALL_TESTS();
    over = true;
    daemon.join();
    std::filesystem::remove_all(home);
    return failed;
}
