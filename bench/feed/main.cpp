// Measures what it costs a router to look at its traffic: the kernel's share and the feed's, for each way to look.
//
// usage: feed_bench [--core N] [--rounds N]
//        feed_bench --flows N --seconds N      so many new connections in this time, and nothing else: is the memory flat?
// Needs root, for network namespaces and for the scheduling that leaves the core to the sender. Ends with 1 where a goal is
// missed.
#include "bench/feed/router.h"
#include "simulator/world/private_network.h"

#include "common/counter_page.h"

#include <algorithm>
#include <numeric>
#include <random>
#include <sched.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

namespace {

struct way {
    const char *name;
    std::vector<std::string> words; // what watches
    const char *ready;
    bool is_killed; // what it leaves behind is what is measured
};

constexpr const char *rules_there = "nft list table inet appident_feed",
                     *ring_there = "grep -q . /proc/net/packet && test $(wc -l </proc/net/packet) -gt 1";

const std::vector<way> &ways()
{
    static const std::string feed = FEED_PATH, pcap = LIBPCAP_PATH;
    auto options = [](const std::string &name) {
        return std::vector<std::string>{feed,       "--own-apps", "none", "--counters", "/tmp/" + name + ".counters",
                                        "--source", name};
    };
    static const std::vector<way> all = {{"nothing", {}, "", false},
                                         {"rule alone", options("nflog"), rules_there, true},
                                         {"NFLOG, first 12", options("nflog"), rules_there, false},
                                         {"AF_PACKET, all", options("interface:lan"), ring_there, false},
                                         {"libpcap, all", {pcap, "lan"}, ring_there, false}};
    return all;
}
enum { way_nothing, way_rule, way_nflog, way_ring, way_pcap, way_count };

struct load {
    const char *name;
    unsigned int flows, packets;
    bool per_flow; // figures are microseconds a flow instead of nanoseconds a packet
};
constexpr load loads[] = {{"bulk", 4, 400, false}, {"web", 40, 40, true}};
constexpr unsigned int settle_us = 300000; // two of the timeouts after which the kernel gives what it gathered

struct cost {
    double kernel, program;
    double both() const { return kernel + program; }
};

double median(std::vector<double> values)
{
    auto middle = values.begin() + static_cast<long>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

struct bench {
    std::vector<router> routers{way_count};
    std::vector<uint8_t> hello = client_hello("www.netflix.com");
    uint32_t next_flow = 0;
    std::vector<double> idle; // of the programs, in the time that a round waits

    std::vector<frame> flows(unsigned int count, unsigned int length)
    {
        next_flow += count;
        return connections(next_flow - count, count, length, 0, length, hello);
    }
};

[[noreturn]] void give_up(const char *why)
{
    fprintf(stderr, "feed_bench: %s\n", why);
    exit(1);
}

std::vector<double> program_times(const bench &all)
{
    std::vector<double> times;
    for (const router &one : all.routers)
        times.push_back(watcher_time(one));
    return times;
}

void measure_idle(bench *all)
{
    constexpr int tries = 9;
    std::vector<std::vector<double>> taken(way_count);
    for (int i = 0; i < tries; i++) {
        std::vector<double> before = program_times(*all);
        usleep(settle_us);
        std::vector<double> after = program_times(*all);
        for (size_t way = 0; way < way_count; way++)
            taken[way].push_back(after[way] - before[way]);
    }
    for (const std::vector<double> &one : taken)
        all->idle.push_back(median(one));
}

// Costs beyond those of a router that nobody watches, per packet or flow, in nanoseconds. The ways take turns in each round, in
// another order each time: what came before is still in the processor's caches.
std::vector<cost> measure(bench *all, const load &what, int rounds)
{
    std::vector<std::vector<double>> kernel(way_count), program(way_count);
    double parts = what.per_flow ? what.flows : what.flows * what.packets;
    std::minstd_rand draw;
    std::vector<size_t> turns(way_count);
    std::iota(turns.begin(), turns.end(), 0);
    for (int round = 0; round < rounds; round++) {
        std::vector<frame> frames = all->flows(what.flows, what.packets);
        std::vector<double> sent(way_count), before = program_times(*all);
        std::shuffle(turns.begin(), turns.end(), draw);
        for (size_t way : turns) {
            uint64_t forwarded = packets_forwarded(all->routers[way]);
            sent[way] = send_frames(all->routers[way], frames);
            if (packets_forwarded(all->routers[way]) - forwarded < frames.size())
                fprintf(stderr, "! %s: not all packets were forwarded\n", ways()[way].name);
        }
        usleep(settle_us);
        std::vector<double> after = program_times(*all);
        for (size_t way = 0; way < way_count; way++) {
            kernel[way].push_back((sent[way] - sent[way_nothing]) / parts);
            program[way].push_back((after[way] - before[way] - all->idle[way]) / parts);
        }
    }
    std::vector<cost> costs;
    for (size_t way = 0; way < way_count; way++)
        costs.push_back({median(kernel[way]), median(program[way])});
    return costs;
}

bool print_costs(const load &what, const std::vector<cost> &costs, double goal, double goal_to_ring)
{
    double scale = what.per_flow ? 1000 : 1;
    printf("\n%s, %u packets a flow: %s\n%-18s %8s %8s %8s\n", what.name, what.packets,
           what.per_flow ? "microseconds a flow" : "nanoseconds a packet", "way", "kernel", "program", "both");
    for (size_t way = way_rule; way < way_count; way++)
        printf("%-18s %8.1f %8.1f %8.1f\n", ways()[way].name, costs[way].kernel / scale, costs[way].program / scale,
               costs[way].both() / scale);
    double nflog = costs[way_nflog].both() / scale, ratio = costs[way_nflog].both() / costs[way_ring].both();
    bool good = nflog <= goal || ratio <= goal_to_ring;
    printf("NFLOG takes %.1f (goal %.0f), %.2f of AF_PACKET (or at most %.2f): %s\n", nflog, goal, ratio, goal_to_ring,
           good ? "good" : "TOO MUCH");
    return good;
}

u32 counter_of(const std::string &page, const char *name)
{
    counter_reading readings[64];
    u32 owner = 0;
    int filled = counter_page_read(page.c_str(), readings, 64, &owner);
    for (int i = 0; i < filled; i++)
        if (strcmp(readings[i].name, name) == 0)
            return readings[i].value;
    give_up("a page of counters cannot be read");
}

// On the router that nobody watched so far: connections that began before the feed, then many new ones.
bool check_old_and_many(bench *all)
{
    constexpr unsigned int old_flows = 50, length = 400, seen_before = 5, first = 10000, many = 5000, most_at_once = 250,
                           first_packets = 20;
    constexpr double goal_mb = 20;
    router &one = all->routers[way_nothing];
    send_frames(one, connections(60000, old_flows, length, 0, seen_before, all->hello));
    if (!start_watcher(&one, ways()[way_nflog].words, rules_there))
        return false;
    uint64_t forwarded = packets_forwarded(one);
    send_frames(one, connections(60000, old_flows, length, seen_before, length, all->hello));
    forwarded = packets_forwarded(one) - forwarded;
    usleep(settle_us);
    stop_watcher(&one, SIGTERM);
    const std::string page = "/tmp/nflog.counters";
    u32 logged = counter_of(page, "packets") + counter_of(page, "log_lost");
    printf("\nOf %llu packets of older flows %u were logged\n", static_cast<unsigned long long>(forwarded), logged);
    if (!start_watcher(&one, ways()[way_nflog].words, rules_there))
        return false;
    for (unsigned int sent = 0; sent < many; sent += most_at_once) {
        send_frames(one, connections(first + sent, most_at_once, length, 0, first_packets, all->hello));
        usleep(settle_us);
    }
    double resident = watcher_resident_kb(one) / 1024;
    stop_watcher(&one, SIGTERM);
    u32 flows = counter_of(page, "flows"), lost = counter_of(page, "log_lost");
    printf("Resident with %u flows: %.1f MB (goal %.0f); packets lost: %u\n", flows, resident, goal_mb, lost);
    return logged == 0 && flows >= many && resident <= goal_mb && lost == 0;
}

// Whole connections one after the other, at an even pace.
bool stays_flat(unsigned int flows, unsigned int seconds)
{
    constexpr unsigned int at_once = 50, packets = 8;
    constexpr double flat_kb = 1024;
    const std::vector<uint8_t> hello = client_hello("www.netflix.com");
    router one;
    if (!make_router("r0", &one) || !start_watcher(&one, ways()[way_nflog].words, rules_there))
        give_up("a router cannot be made");
    double settled_kb = 0, most_kb = 0;
    time_t began = time(nullptr);
    for (unsigned int sent = 0; sent < flows; sent += at_once) {
        send_frames(one, connections(sent, at_once, packets, 0, packets, hello));
        while (time(nullptr) - began < static_cast<time_t>(static_cast<uint64_t>(sent) * seconds / flows))
            usleep(settle_us / 10);
        // The tables have filled by then.
        double resident_kb = watcher_resident_kb(one);
        if (sent < flows / 4)
            settled_kb = std::max(settled_kb, resident_kb);
        most_kb = std::max(most_kb, resident_kb);
    }
    usleep(settle_us);
    stop_watcher(&one, SIGTERM);
    const std::string page = "/tmp/nflog.counters";
    u32 seen = counter_of(page, "flows"), lost = counter_of(page, "log_lost"), full = counter_of(page, "flow_table_full");
    printf("%u connections in %lld s: %u seen, %u packets lost, %u forgotten early; resident after a quarter %.1f MB, at most "
           "%.1f MB\n",
           flows, static_cast<long long>(time(nullptr) - began), seen, lost, full, settled_kb / 1024, most_kb / 1024);
    // Other work on the core may keep the feed from it for so long that packets are lost.
    return seen + lost >= flows && most_kb <= settled_kb + flat_kb;
}

void set_up(bench *all)
{
    for (size_t i = 0; i < way_count; i++) {
        const way &chosen = ways()[i];
        router &one = all->routers[i];
        if (!make_router("r" + std::to_string(i), &one) ||
            (!chosen.words.empty() && !start_watcher(&one, chosen.words, chosen.ready)))
            give_up("a router cannot be made");
        if (chosen.is_killed)
            stop_watcher(&one, SIGKILL);
    }
}

} // namespace

int main(int argc, char **argv)
{
    int core = 0, rounds = 61, flows = 0, seconds = 0;
    const struct {
        const char *name;
        int *value;
    } options[] = {{"--core", &core}, {"--rounds", &rounds}, {"--flows", &flows}, {"--seconds", &seconds}};
    for (int i = 1; i + 1 < argc; i += 2)
        for (const auto &one : options)
            if (strcmp(argv[i], one.name) == 0)
                *one.value = atoi(argv[i + 1]);
    if (!inside_private_network()) {
        fprintf(stderr, "%s\n", enter_private_network(argv, {}).c_str());
        return 3;
    }
    cpu_set_t cores;
    CPU_ZERO(&cores);
    CPU_SET(core, &cores);
    if (sched_setaffinity(0, sizeof(cores), &cores) != 0 || !make_private_tmp({FEED_PATH, LIBPCAP_PATH}))
        give_up("the core or a private /tmp is not to be had");
    if (system("mount -t tmpfs none /run") != 0)
        give_up("a private /run is not to be had");
    if (flows > 0)
        return stays_flat(static_cast<unsigned int>(flows), static_cast<unsigned int>(seconds)) ? 0 : 1;
    bench all;
    set_up(&all);
    measure_idle(&all);
    bool good = true;
    constexpr double goals[] = {100, 22}, goals_to_ring[] = {0.35, 0.9};
    for (size_t i = 0; i < 2; i++)
        good &= print_costs(loads[i], measure(&all, loads[i], rounds), goals[i], goals_to_ring[i]);
    good &= check_old_and_many(&all);
    for (router &one : all.routers)
        if (one.watcher > 0)
            stop_watcher(&one, SIGTERM);
    return good ? 0 : 1;
}
