#include "bench/resting.h"

#include "bench/world.h"
#include "simulator/world/daemon_process.h"

#include <filesystem>
#include <fstream>
#include <stdio.h>
#include <unistd.h>

namespace {

constexpr u32 update_group = 2;

// Of all its threads.
double processor_seconds(pid_t process)
{
    double sum = 0;
    for (const auto &task : std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task")) {
        double nanoseconds = 0;
        std::ifstream(task.path() / "schedstat") >> nanoseconds;
        sum += nanoseconds / 1e9;
    }
    return sum;
}

} // namespace

double resident_kb(pid_t process)
{
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    for (std::string word; status >> word;) {
        double value;
        if (word == "VmRSS:" && status >> value)
            return value;
    }
    return 0;
}

pid_t start_serving_daemon(const std::string &path)
{
    pid_t daemon = start_daemon(path);
    for (int i = 0; i < 600 && !daemon_serves(); i++)
        usleep(100000);
    if (daemon_serves())
        return daemon;
    fprintf(stderr, "the daemon does not serve\n");
    _exit(1);
}

resting_report measure_rest(u32 devices, const std::string &daemon_path, unsigned seconds)
{
    pid_t daemon = start_serving_daemon(daemon_path);
    resting_report report = {devices, resident_kb(daemon), 0, 0};
    double before = processor_seconds(daemon);
    sleep(seconds);
    report.idle_seconds = (processor_seconds(daemon) - before) * 3600 / seconds;
    int sender = open_sender();
    start_every_app(sender, update_group, devices);
    sleep(2);
    if (daemon_counter("hits_tracked") != devices * apps_in_use)
        fprintf(stderr, "only %u of %u starting hits were tracked\n", daemon_counter("hits_tracked"), devices * apps_in_use);
    report.full_kb = resident_kb(daemon);
    stop_daemon(daemon);
    return report;
}
