#include "bench/hit_way.h"

#include "bench/resting.h"
#include "bench/world.h"
#include "simulator/world/daemon_process.h"
#include "simulator/world/hit_latency.h"
#include "simulator/world/private_network.h"

#include <atomic>
#include <chrono>
#include <thread>
#include <unistd.h>

namespace {

constexpr u32 hits = 1000, crowd = 250;
constexpr useconds_t between_hits = 5000;

// 250 neighbours a second, each with a MAC of its own that is not met again, take the place of those before. Returns how many.
u32 churn(const std::atomic<bool> &stop)
{
    u32 stranger = 0;
    for (; !stop; stranger++) {
        char mac[32];
        snprintf(mac, sizeof(mac), "02-07-00-%02X-%02X-%02X", stranger >> 16 & 0xff, stranger >> 8 & 0xff, stranger & 0xff);
        meet_neighbour("10.77.200." + std::to_string(1 + stranger % crowd), mac);
        usleep(1000000 / crowd);
    }
    return stranger;
}

hit_way measure(pid_t daemon, int sender, int subscriber, u32 devices, u32 *app)
{
    std::vector<long long> took;
    hit_way found = {};
    for (u32 i = 0; i < hits; i++, usleep(between_hits)) {
        long long one = time_of_hit(sender, subscriber, address_of(i % devices), (*app)++);
        one < 0 ? static_cast<void>(found.untold++) : took.push_back(one);
    }
    found.median_ms = static_cast<double>(percentile(took, 50)) / 1000;
    found.p99_ms = static_cast<double>(percentile(took, 99)) / 1000;
    found.resident_kb = resident_kb(daemon);
    return found;
}

} // namespace

hit_way_report measure_hit_way(u32 devices, const std::string &daemon_path)
{
    pid_t daemon = start_serving_daemon(daemon_path);
    int sender = open_sender(), subscriber = subscribe_to_pushes();
    u32 app = first_app;
    hit_way_report report = {};
    report.quiet = measure(daemon, sender, subscriber, devices, &app);
    std::atomic<bool> stop{false};
    u32 met = 0;
    auto began = std::chrono::steady_clock::now();
    std::thread crowds([&] { met = churn(stop); });
    report.churning = measure(daemon, sender, subscriber, devices, &app);
    stop = true;
    crowds.join();
    report.churning.neighbours = met / std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count();
    stop_daemon(daemon);
    return report;
}
