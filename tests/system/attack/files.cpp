// Attacks on what the daemon keeps and reads: files that make no sense.
#include "tests/system/attack/attack.h"

#include "common/guards.h"
#include "common/sec_plg_common.h"
#include "platform/linux/client/request_client.h"
#include "simulator/world/daemon_process.h"
#include "simulator/world/household_files.h"

#include <filesystem>
#include <fstream>
#include <set>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

namespace {

constexpr int request_timeout_ms = 10000;

const std::string &mac()
{
    return household_devices()[0].mac;
}

std::string config_path()
{
    return std::string(state_directory) + "/config/" + mac() + ".config";
}

// Five classes, all of the same minutes.
std::string limits_of(u32 minutes)
{
    std::string text = "{\"device\":\"" + mac() + "\",\"data\":[";
    for (int class_type = 1; class_type <= 5; class_type++)
        text += std::string(class_type > 1 ? "," : "") + "{\"class_type\":" + std::to_string(class_type) +
                ",\"onoff\":1,\"use_time\":" + std::to_string(minutes) + ",\"appid\":[1001,1002]}";
    return text + "]}";
}

bool save(u32 minutes)
{
    std::string text = limits_of(minutes);
    return call_daemon(request_socket_path, request_timeout_ms, {11, mac().c_str(), text.c_str(), nullptr, 0}, nullptr) ==
           request_done;
}

// The minutes that the daemon tells of each class.
std::multiset<u32> stored_minutes()
{
    client_answer answer = {};
    std::multiset<u32> minutes;
    if (call_daemon(request_socket_path, request_timeout_ms, {12, mac().c_str(), nullptr, nullptr, 0}, &answer) != request_done)
        return minutes;
    json_tree root(cJSON_Parse(answer.text ? answer.text.get() : ""));
    const cJSON *limit = nullptr;
    cJSON_ArrayForEach(limit, cJSON_GetObjectItem(root.get(), "data"))
        minutes.insert(static_cast<u32>(cJSON_GetNumberValue(cJSON_GetObjectItem(limit, "use_time"))));
    return minutes;
}

long resident_kilobytes(pid_t pid)
{
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);)
        if (line.compare(0, 6, "VmHWM:") == 0)
            return std::stol(line.substr(6));
    return 0;
}

const struct {
    const char *kind;
    void (*leave)(const std::string &path);
} hostile_files[] = {
    {"nothing", [](const std::string &path) { std::ofstream(path).flush(); }},
    {"no JSON", [](const std::string &path) { std::ofstream(path) << "not json"; }},
    {"half", [](const std::string &path) { std::ofstream(path) << R"({"device":"02-00-5E-00-00-11","data":[{"class)"; }},
    {"another shape",
     [](const std::string &path) { std::ofstream(path) << R"({"device":5,"devices":{},"data":{"a":[[]]},"payment":[]})"; }},
    {"a megabyte of values",
     [](const std::string &path) {
         std::ofstream file(path);
         for (int i = 0; i < 1 << 19; i++)
             file << (i ? ",0" : "[0");
     }},
    {"deep", [](const std::string &path) { std::ofstream(path) << std::string(500000, '['); }},
    {"fifo", [](const std::string &path) { mkfifo(path.c_str(), 0666); }},
    {"directory", [](const std::string &path) { mkdir(path.c_str(), 0777); }},
    {"link to /dev/zero", [](const std::string &path) { static_cast<void>(!symlink("/dev/zero", path.c_str())); }},
};

} // namespace

attack_row leave_hostile_files()
{
    std::filesystem::remove_all(std::string(state_directory) + "/config");
    std::filesystem::create_directories(std::string(state_directory) + "/config");
    child_process daemon(start_fast_daemon(20));
    bool stands = daemon_answers();
    long before = resident_kilobytes(daemon.pid);
    const std::string roster = std::string(state_directory) + "/roster.json",
                      catalogue = std::string(state_directory) + "/catalogue.json";
    int tried = 0, missed = 0;
    for (const auto &[kind, leave] : hostile_files) {
        for (const std::string &path : {config_path(), config_path() + ".new", roster, catalogue}) {
            std::filesystem::remove_all(path);
            leave(path);
            // A read and a save come back in any case; the roster is the last good one.
            stored_minutes();
            bool saved = save(60);
            bool answered = daemon_answers();
            std::filesystem::remove_all(path);
            bool mended = write_roster(household_devices()) && save(61) && stored_minutes().size() == 5;
            tried++;
            missed += !answered || !mended;
            if (!answered || !mended)
                fprintf(stderr, "missed: %s at %s: saved %d, answered %d, mended %d\n", kind, path.c_str(), saved, answered,
                        mended);
        }
    }
    long grown = resident_kilobytes(daemon.pid) - before;
    return {"hostile config, roster, catalogue", std::to_string(tried) + " files",
            std::to_string(missed) + " stopped or bricked; memory grew by " + std::to_string(grown) + " KiB",
            stands && missed == 0 && grown < 8192};
}
