// doctor: the findings for a healthy run and for broken ones.
#include "tests/system/appidentctl/scripted_daemon.h"

#include "common/guards.h"

#include <cjson/cJSON.h>
#include <filesystem>
#include <string.h>
#include <time.h>
#include <unistd.h>
#include <utime.h>

namespace {

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

u32 uptime()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<u32>(now.tv_sec);
}

TEST_F(tool, finds_out_why_there_is_no_data)
{
    write_file("wrong.json", "{\"lan_interface\":\"nolan0\",\"state_dir\":\"" + home + "\",\"runtime_dir\":\"" + home + "\"}");
    write_file("junk.json", "{\"lan_interface\":\"lo\",\"state_dir\":\"" + home + "\",\"runtime_dir\":\"" + home +
                                "\",\"socket_group\":\"no such group\"}");
    write_file("gone.json", "{\"lan_interface\":\"lo\",\"state_dir\":\"" + home + "/none\",\"runtime_dir\":\"" + home + "\"}");
    utimbuf long_ago = {1700000000, 1700000000};
    const struct {
        void (*spoil)();
        const char *options;
        int code;
        const char *expected; // beside the loopback's lack of neighbours
    } cases[] = {
        {[] {}, "", 4, ""},
        {[] { set("hits_unknown_device", 5); }, "", 4, ""},
        {[] { set("traffic_messages", 0); }, "", 5, "feed warning;traffic fault;"},
        {[] { set("traffic_messages", 0), set("started_uptime", uptime()); }, "", 4, "feed warning;traffic warning;"},
        {[] { set("traffic_other", 5); }, "", 5, "feed warning;traffic fault;"},
        {[] { set("hits_tracked", 0); }, "", 5, "records fault;"},
        {[] { set("hits_tracked", 0), set("hits_unknown_device", 5); }, "", 4, "records warning;"},
        {[] { EXPECT_TRUE(chown((home + "/log").c_str(), 65534, 65534) == 0 || geteuid() != 0); }, "", geteuid() == 0 ? 5 : 4,
         geteuid() == 0 ? "owners fault;" : ""},
        {[] { set("last_hit_time", static_cast<u32>(time(nullptr)) + 4000); }, "", 4, "clock warning;"},
        {[] {
             for (const char *name : {"traffic_undecodable", "hits_unknown_mac", "traffic_lost", "app_table_full"})
                 set(name, 3);
             set("pushes", 0), set("last_hit_time", static_cast<u32>(time(nullptr)) - 4000);
         },
         "", 4, "decoding warning;unknown MACs warning;losses warning;records warning;tables warning;pushes warning;"},
        {[] {
             write_file("roster.json", R"({"devices":[{"mac":"A8-00-00-00-00-01","role":0}]})"), set("hits_unknown_device", 5);
         },
         "", 5, "devices fault;untracked devices warning;"},
        {[] {}, "--settings=$HOME_DIR/wrong.json", 5, "LAN fault;"},
        {[] {}, "--settings=$HOME_DIR/junk.json", 5, "settings fault;"},
        {[] {}, "--settings=$HOME_DIR/gone.json", 5, "disk fault;"},
        {[] {}, "--log=$HOME_DIR/old.log", 5, "log fault;"},
        {[] { std::filesystem::remove(home + "/counters"); }, "--socket=$HOME_DIR/none", 3, "daemon fault;socket fault;"},
    };
    for (const auto &one : cases) {
        SetUp();
        std::filesystem::remove(home + "/log");
        write_file("log", "a line\n");
        write_file("old.log", "a line\n");
        utime((home + "/old.log").c_str(), &long_ago);
        for (const char *name : {"traffic_messages", "hits_tracked", "pushes"})
            set(name, 5);
        set("started_uptime", uptime() - 3600);
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

TEST_F(tool, finds_out_what_keeps_the_feed_from_telling_apps)
{
    const u32 now = uptime(), hour_ago = now - 3600;
    const struct {
        std::map<feed_counter, u32> said;
        u32 heard; // by the daemon
        const char *expected;
    } cases[] = {
        {{{feed_packets, 9}, {feed_flows, 3}, {feed_messages_sent, 2}}, 2, ""},
        {{{feed_started_uptime, now}}, 2, "feed warning;"},
        {{{feed_started_uptime, hour_ago}}, 2, "feed fault;"},
        {{{feed_started_uptime, hour_ago}, {feed_packets, 9}}, 2, "feed fault;"},
        {{{feed_packets, 9}, {feed_flows, 3}, {feed_log_lost, 1}, {feed_uses_full, 1}, {feed_lines_skipped, 1}},
         2,
         "feed's input warning;feed's tables warning;app rules warning;"},
        {{{feed_packets, 9}, {feed_flows, 3}, {feed_messages_failed, 1}}, 2, "feed's input fault;"},
        {{{feed_packets, 9}, {feed_flows, 3}, {feed_offload_unguarded, 1}}, 2, "offloading fault;"},
        {{{feed_packets, 9}, {feed_flows, 3}}, 0, "traffic warning;"},
        {{{feed_packets, 9}, {feed_flows, 3}, {feed_messages_sent, 2}, {feed_started_uptime, now - 7200}},
         0,
         "traffic warning;"},
        {{{feed_packets, 9}, {feed_flows, 3}, {feed_messages_sent, 2}, {feed_started_uptime, hour_ago}}, 0, "traffic fault;"},
    };
    for (const auto &one : cases) {
        SetUp();
        write_file("log", "a line\n");
        set("traffic_messages", one.heard), set("hits_tracked", 1), set("pushes", 1), set("started_uptime", hour_ago);
        set("last_hit_time", static_cast<u32>(time(nullptr)));
        feed_says(one.said);
        std::string words = run("doctor --json --log=$HOME_DIR/log").words, found = complaints(words);
        EXPECT_EQ(found.substr(found.find(';') + 1), one.expected) << words; // behind the loopback's lack of neighbours
    }
    EXPECT_NE(run("doctor").words.find("2 messages, and none arrived"), std::string::npos);
}

// As a service sees it that is shown its own process alone, such as appident-home.
TEST_F(tool, does_not_take_hidden_for_absent)
{
    const std::string hide = "unshare -mn sh -c 'ip link set lo up && "
                             "ip neighbour add 127.0.0.2 lladdr 02:00:00:00:00:02 dev lo nud permanent && "
                             "mount -t proc -o subset=pid,hidepid=ptraceable none /proc && "
                             "exec setpriv --bounding-set=-all \"$@\"' - ";
    if (run("version", hide).code != 0)
        GTEST_SKIP() << "NOT TESTED HERE: no /proc of our own can be made";
    std::string words = run("doctor --json", hide).words;
    for (const char *expected :
         {R"("owners","level":"ok","text":"not to be seen from here)", R"("neighbours","level":"ok","text":"1 on lo")"})
        EXPECT_NE(words.find(expected), std::string::npos) << words;
}

TEST_F(tool, leads_a_new_household_through_the_first_steps)
{
    write_file("roster.json", R"({"devices":[{"mac":"A8-00-00-00-00-01"}]})");
    std::string words = run("doctor").words;
    size_t left = words.find("Left to do, in this order:\n  - let something tell it the apps");
    ASSERT_NE(left, std::string::npos) << words;
    EXPECT_NE(words.find("--role 1\n  - use a watched device", left), std::string::npos) << words;
    set("traffic_messages", 1), set("hits_tracked", 1);
    write_file("roster.json", R"({"devices":[{"mac":"A8-00-00-00-00-01","role":1,"online":true}]})");
    words = run("doctor").words;
    EXPECT_EQ(words.find("Left to do"), std::string::npos) << words;
}

} // namespace
