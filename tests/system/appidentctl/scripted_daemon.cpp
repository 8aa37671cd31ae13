#include "tests/system/appidentctl/scripted_daemon.h"

#include "common/sec_plg_common.h"
#include "igd/igd_lib.h"
#include "tests/kit/leftovers.h"

#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <poll.h>
#include <string.h>
#include <sys/wait.h>
#include <thread>

std::string home;

void write_file(const std::string &name, const std::string &text)
{
    std::ofstream(home + "/" + name) << text;
}

daemon_script script;

namespace {

const std::string success = "{\"err_no\":\"0\",\"err_msg\":\"success\",";

} // namespace

outcome run(const std::string &arguments, const std::string &variables)
{
    script.held.lock(), script.held.unlock();
    std::string command = "TZ=UTC " + variables + " " TOOL_COMMAND " --socket=" + home + "/ipc --counters=" + home +
                          "/counters --feed-counters=" + home + "/feed " + arguments + " 2>&1";
    FILE *pipe = popen(command.c_str(), "r");
    outcome out = {-1, ""};
    for (int c = 0; (c = fgetc(pipe)) != EOF;)
        out.words += static_cast<char>(c);
    out.code = WEXITSTATUS(pclose(pipe));
    std::lock_guard<std::mutex> lock(script.held);
    return out;
}

namespace {

std::string report(unsigned int id, const std::string &asked)
{
    std::string apps = "\"data\":[{\"appid\":1001,\"starttime\":1700000000,\"endtime\":0,\"sumtime\":12}";
    apps += id % 2 ? ",{\"appid\":7,\"starttime\":1700000700,\"endtime\":0,\"sumtime\":0}]}" : "]}";
    if (id <= APPIDENT_GET_CUR_DEVICE_APP_FOR_ROM)
        return asked == "A8-00-00-00-00-01" ? success + apps : "";
    return success + "\"results\":[{\"device\":\"A8-00-00-00-00-01\"," + apps + "]}";
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

const char *const counter_names[] = {
    "serving",        "started_uptime",   "traffic_messages",    "traffic_undecodable", "traffic_lost", "traffic_other",
    "hits_tracked",   "hits_unknown_mac", "hits_unknown_device", "last_hit_time",       "pushes",       "last_push_time",
    "app_table_full", "a_new_one"};
std::atomic<u32> values[std::size(counter_names)];

} // namespace

counter_page page = {counter_names, values, std::size(counter_names), -1};

void set(const char *name, u32 value)
{
    for (size_t i = 0; i < std::size(counter_names); i++)
        if (strcmp(counter_names[i], name) == 0)
            values[i] = value;
    counter_page_write(page);
}

void feed_says(const std::map<feed_counter, u32> &said)
{
    static const char *const names[] = {FEED_COUNTERS(COUNTER_NAME)};
    static std::atomic<u32> counts[feed_counter_end];
    for (u32 i = 0; i < feed_counter_end; i++)
        counts[i] = said.count(feed_counter(i)) ? said.at(feed_counter(i)) : 0;
    close(counter_page_create((home + "/feed").c_str(), {names, counts, feed_counter_end, -1}));
}

void tool::SetUp()
{
    std::filesystem::remove(home + "/feed");
    std::lock_guard<std::mutex> lock(script.held);
    script.role = 1;
    script.limits = script.asked = "";
    script.switches = {};
    for (std::atomic<u32> &value : values)
        value = 0;
    page.fd = counter_page_create((home + "/counters").c_str(), page);
    ASSERT_GE(page.fd, 0);
    set("serving", 1);
    write_file("roster.json", R"({"devices":[{"mac":"A8-00-00-00-00-01","role":1,"name":"Ann","online":true},
        {"mac":"A8-00-00-00-00-02","role":2,"name":"Bob","online":false}]})");
}

int main(int argc, char **argv)
{
    testing::InitGoogleTest(&argc, argv);
    char directory[] = "/tmp/appidentctl.XXXXXX";
    home = mkdtemp(directory);
    leave_nothing_in(home);
    write_file("settings.json", "{\"lan_interface\":\"lo\",\"state_dir\":\"" + home + "\",\"runtime_dir\":\"" + home + "\"}");
    write_file("catalogue.json", R"({"data":[{"class_type":"3","appid":[1001]},{"class_type":"1","appid":[1002]}],
        "names":{"1001":"Video","1002":"Blocks"}})");
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
    return failed;
}
