// Attacks on what the daemon keeps and reads: kills while it saves, files that make no sense, names that run commands.
#include "tests/system/attack/attack.h"

#include "common/guards.h"
#include "common/sec_plg_common.h"
#include "platform/linux/client/request_client.h"
#include "simulator/world/daemon_process.h"
#include "simulator/world/household_files.h"

#include <filesystem>
#include <fstream>
#include <random>
#include <set>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

constexpr int speed = 600;
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

attack_row kill_while_saving()
{
    constexpr int kills = 120;
    std::minstd_rand draw;
    u32 minutes = 0, acknowledged = 0;
    int torn = 0, lost = 0, silent = 0;
    std::filesystem::remove_all(std::string(state_directory) + "/config");
    for (int i = 0; i <= kills; i++) {
        child_process daemon(start_fast_daemon(speed));
        silent += !daemon_answers();
        std::multiset<u32> stored = stored_minutes();
        torn += i > 0 && (stored.size() != 5 || *stored.begin() != *stored.rbegin());
        lost += i > 0 && (stored.empty() || *stored.begin() < acknowledged);
        std::thread saver([&] {
            while (save(minutes + 1))
                acknowledged = ++minutes;
            ++minutes; // may be stored, or not
        });
        usleep(2000 + static_cast<unsigned>(draw() % 20000));
        kill(daemon.pid, SIGKILL);
        saver.join();
    }
    return {"killed while saving five classes", std::to_string(kills) + " kills, " + std::to_string(acknowledged) + " saves",
            std::to_string(torn) + " torn, " + std::to_string(lost) + " acknowledged lost",
            torn == 0 && lost == 0 && silent == 0 && acknowledged > kills};
}

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

attack_row complete_a_hostile_roster()
{
    const std::string owned = "/tmp/household/owned";
    std::string entries;
    for (const std::string &text :
         std::vector<std::string>{"$(touch " + owned + ")", "`touch " + owned + "`", "; touch " + owned + " ;",
                                  "AA-BB-CC-DD-EE-FF$(touch " + owned + ")", "*", "a\\\" b"})
        entries += ",{\"mac\":\"" + text + "\",\"role\":1,\"name\":\"" + text + "\"}";
    std::ofstream(std::string(state_directory) + "/roster.json")
        << "{\"devices\":[{\"mac\":\"" + mac() + "\",\"role\":1,\"name\":\"phone\"}" + entries + "]}";
    int tried = 0, missed = 0;
    for (const char *words : {"apps", "limits", "payments", "apps --devices", "limits --set", "devices", "today"}) {
        std::string script = "PATH=" TOOL_DIRECTORY ":$PATH; source " SOURCE_DIR
                             "/packaging/completion/appidentctl; COMP_WORDS=(appidentctl " +
                             std::string(words) +
                             " ''); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); "
                             "\"$(complete -p appidentctl | sed 's/.*-F \\([^ ]*\\) .*/\\1/')\"; "
                             "printf '%s\\n' \"${COMPREPLY[@]}\" >>/tmp/household/offered";
        std::ofstream("/tmp/household/complete.sh") << script;
        static_cast<void>(!system("bash /tmp/household/complete.sh >/dev/null 2>&1"));
        tried++;
        missed += std::filesystem::exists(owned);
    }
    bool works = text_of("/tmp/household/offered").find("phone") != std::string::npos ||
                 text_of("/tmp/household/offered").find(mac()) != std::string::npos;
    write_roster(household_devices());
    return {"completion of a hostile roster", std::to_string(tried) + " completions as root",
            std::to_string(missed) + " ran a command", missed == 0 && works};
}
