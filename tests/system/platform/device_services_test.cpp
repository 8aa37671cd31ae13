// What the library answers about devices and apps, from the roster and the catalogue.
#include "tests/system/platform/place.h"

#include "common/guards.h"
#include "igd/igd_lib.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <string.h>

namespace {

std::string ask_service(const char *path, const char *query)
{
    char *answer = nullptr;
    int result = call_cgi(path, query, &answer);
    heap_text owned(answer);
    EXPECT_EQ(result != 0, answer != nullptr);
    return answer ? answer : "(none)";
}

TEST(device_services, answer_from_the_roster_and_the_catalogue_as_they_are_now)
{
    const char *online = "/app/devices/webs/getdeviceslist.cgi", *offline = "/app/devices/webs/get_offline_dev_list.cgi";
    const char *apps = "/app/ib_manager/webs/get_user_apps.cgi";
    unsigned char tablet[6] = {0xAA, 0, 0, 0, 0, 1};
    int homeid = 0, forkid = 0;
    auto data = [](const std::string &entries) { return R"({"err_no":"0","data":[)" + entries + "]}"; };
    EXPECT_EQ(ask_service(online, "noneed=noneed") + ask_service(apps, nullptr) + ask_service("/else", ""),
              data("") + "(none)(none)");
    EXPECT_EQ(get_group_by_mac(tablet, &homeid, &forkid), -1);
    write_file("state/roster.json",
               R"({"home":7,"devices":[{"mac":"aa:00:00:00:00:01","role":1,"name":"Ünïçödé tablet of somebodyß","group":5,
                   "online":true},{"mac":"AA-00-00-00-00-02","online":false},{"mac":"AA-00-00-00-00-01","role":9},{"mac":"AA-00"},
                   {"mac":"0A-00-00-00-00-03","role":"2","online":true},{"mac":"AA-00-00-00-00-04","role":2}]})");
    const std::string first = R"({"mac":"AA-00-00-00-00-01","role":"1"})";
    const std::string others = R"({"mac":"AA-00-00-00-00-02","role":"0"},{"mac":"AA-00-00-00-00-04","role":"2"})";
    // A role that is no number is not told at all.
    EXPECT_EQ(ask_service(online, "noneed=noneed"), data(first));
    EXPECT_EQ(ask_service(online, "mac=AA-00-00-00-00-01"), data(first));
    for (const char *query : {"mac=AA-00-00-00-00-02", "mac=AA-00-00-00-00-04", "mac=AA-00-00-00-00-09", "mac="})
        EXPECT_EQ(ask_service(online, query), data(""));
    EXPECT_EQ(ask_service(offline, ""), data(others));
    EXPECT_TRUE(counts("roster_entries_refused", 3u));
    EXPECT_TRUE(counts("roster_unreadable", 0u)) << "a roster that was never made is no fault";
    nos_hostname_cfg names = {};
    memcpy(names.mac, tablet, 6);
    EXPECT_EQ(nos_hostname_action(&names), 0);
    EXPECT_STREQ(names.s_name, "Ünïçödé tablet of somebody");
    EXPECT_EQ(get_group_by_mac(tablet, &homeid, &forkid), 0);
    EXPECT_EQ(homeid * 100 + forkid, 705);

    // Half a roster, none, or one too deep: the last good one stays, and each change for the worse is counted once.
    u32 unreadable = counter_of("roster_unreadable");
    for (const std::string &bad : {std::string(R"({"devices":[{"mac":)"), std::string("[]"), std::string(40000, '[')}) {
        write_file("state/roster.json", bad);
        ask_service(offline, "");
        EXPECT_EQ(ask_service(offline, ""), data(others));
        EXPECT_TRUE(counts("roster_unreadable", ++unreadable));
    }
    remove((home + "state/roster.json").c_str());
    EXPECT_EQ(ask_service(offline, ""), data(others));
    EXPECT_TRUE(counts("roster_unreadable", ++unreadable)) << "it has vanished";
    write_file("state/roster.json", R"({"devices":[]})");
    EXPECT_EQ(ask_service(offline, ""), data(""));
}

// Role 0 deletes settings, so where the roster is lost nobody's role may be told.
TEST(device_services, say_nothing_where_a_roster_has_vanished)
{
    const char *offline = "/app/devices/webs/get_offline_dev_list.cgi";
    std::filesystem::create_directories(home + "state/config");
    write_file("state/config/AA-00-00-00-00-01.config", "{}");
    EXPECT_EQ(ask_service(offline, ""), "(none)");
    write_file("state/roster.json", R"({"devices":[{"mac":"AA-00-00-00-00-01","role":1}]})");
    EXPECT_EQ(ask_service(offline, ""), R"({"err_no":"0","data":[{"mac":"AA-00-00-00-00-01","role":"1"}]})");
}

TEST(device_services, add_the_owners_apps_to_the_installed_catalogue)
{
    auto catalogue = [] { return ask_service("/app/ib_manager/webs/get_user_apps.cgi", nullptr); };
    auto data = [](const std::string &entries) { return R"({"err_no":"0","data":[)" + entries + "]}"; };
    write_file("state/catalogue.json", R"({"data":[{"class_type":"1","appid":[1001,"x",1002]},{"class_type":2,"appid":[1]}],
                   "names":{"1001":"Video"}})");
    EXPECT_EQ(catalogue(), data(R"({"class_type":"1","appid":[1001,1002]})"));
    write_file(
        "installed.json",
        R"({"data":[{"class_type":"3","appid":[7,1001]},{"class_type":"1","appid":[8]},{"class_type":"5","appid":[1002]}]})");
    const std::string both = data(R"({"class_type":"3","appid":[7]},{"class_type":"1","appid":[8,1001,1002]})");
    EXPECT_EQ(catalogue(), both) << "the owner's word on 1001 and 1002 goes first";
    write_file("state/catalogue.json", "{");
    EXPECT_EQ(catalogue(), both);
    EXPECT_TRUE(counts("catalogue_unreadable", 1u));
    remove((home + "state/catalogue.json").c_str());
    EXPECT_EQ(catalogue(),
              data(R"({"class_type":"3","appid":[7,1001]},{"class_type":"1","appid":[8]},{"class_type":"5","appid":[1002]})"));
    remove((home + "installed.json").c_str());
    EXPECT_NE(catalogue(), data("")) << "a catalogue without apps would empty the devices' settings";
}

} // namespace
