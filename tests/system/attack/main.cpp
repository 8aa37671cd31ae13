#include "tests/system/attack/attack.h"

#include "simulator/player.h"
#include "simulator/world/daemon_process.h"
#include "simulator/world/household_files.h"
#include "simulator/world/private_network.h"

#include "common/sec_plg_common.h"
#include "platform/linux/client/request_client.h"

#include <chrono>
#include <glob.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

const std::vector<device_entry> &household_devices()
{
    static const std::vector<device_entry> devices = {{"phone", "02-00-5E-00-00-11", "192.168.77.11", 1, 3, true},
                                                      {"tablet", "02-00-5E-00-00-12", "192.168.77.12", 1, 4, true},
                                                      {"laptop", "02-00-5E-00-00-13", "192.168.77.13", 1, 5, true}};
    return devices;
}

child_process::~child_process()
{
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
}

// The faster clock is preloaded here: its own command would stand between us and the daemon.
static std::string clock_library()
{
    glob_t found = {};
    std::string path = glob("/usr/lib/*/faketime/libfaketimeMT.so.1", 0, nullptr, &found) == 0 ? found.gl_pathv[0] : "";
    globfree(&found);
    return path;
}

pid_t start_fast_daemon(int speed)
{
    static const std::string library = clock_library();
    fflush(nullptr);
    pid_t child = fork();
    if (child != 0)
        return child;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    // What the daemon says is not part of the table.
    bool quiet = freopen("/tmp/household/words", "a", stdout) && freopen("/tmp/household/words", "a", stderr);
    setenv("LD_PRELOAD", library.c_str(), 1);
    setenv("FAKETIME", ("+0 x" + std::to_string(speed)).c_str(), 1);
    execl(DAEMON_PATH, DAEMON_PATH, static_cast<char *>(nullptr));
    _exit(quiet ? 127 : 126);
}

pid_t start_nobody(const std::function<void()> &act)
{
    fflush(nullptr);
    pid_t child = fork();
    if (child != 0)
        return child;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (setgid(65534) != 0 || setuid(65534) != 0)
        _exit(1);
    for (;;)
        act();
}

bool daemon_answers()
{
    client_request question = {APPIDENT_GET_CUR_DEVICE_APP, household_devices()[0].mac.c_str(), nullptr, nullptr, 0};
    return comes_true(10, [&] { return call_daemon(request_socket_path, 10000, question, nullptr) == request_done; });
}

static bool prepare(char **argv)
{
    return make_private_tmp({argv[0], DAEMON_PATH, SOURCE_DIR}) && make_lan("192.168.77.1/24") &&
           settle_neighbours(household_devices()) && write_settings() && write_roster(household_devices()) &&
           write_catalogue({}, now_by_the_clock());
}

int main(int argc, char **argv)
{
    if (!inside_private_network()) {
        fprintf(stderr, "%s\n", enter_private_network(argv, {}).c_str());
        return 3;
    }
    setenv("APPIDENT_PLATFORM_SETTINGS", settings_path, 1);
    if (!prepare(argv))
        return 3;
    const struct {
        const char *name;
        attack_row (*play)();
    } attacks[] = {{"race", race_for_the_socket}, {"plant", plant_before_the_start}, {"replace", replace_at_run_time},
                   {"second", start_once_more},   {"flood", flood_the_channel},      {"limits", send_many_limits},
                   {"kill", kill_while_saving},   {"files", leave_hostile_files},    {"completion", complete_a_hostile_roster}};
    std::vector<attack_row> table;
    for (const auto &one : attacks) {
        if (argc > 1 && strcmp(argv[1], one.name) != 0)
            continue;
        auto began = std::chrono::steady_clock::now();
        table.push_back(one.play());
        std::chrono::duration<double> took = std::chrono::steady_clock::now() - began;
        fprintf(stderr, "%s: %.1f s\n", one.name, took.count());
    }
    bool held = !table.empty();
    for (const attack_row &row : table) {
        printf("%-6s %-36s %-52s %s\n", row.held ? "held" : "MISSED", row.what.c_str(), row.tried.c_str(), row.seen.c_str());
        held = held && row.held;
    }
    return held ? 0 : 1;
}
