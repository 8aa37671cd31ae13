// Measures the daemon's hot path, its periodic pass, and what it takes at rest; prints tables.
//
// usage: appident_bench [--core N] [--rounds N] [--no-rest]
// Needs root, for network namespaces and for the scheduling that makes messages queue or wake.
#include "bench/hit_way.h"
#include "bench/resting.h"
#include "bench/ticks.h"
#include "bench/turns.h"
#include "bench/world.h"
#include "simulator/world/private_network.h"

#include <sched.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

struct options {
    int core = 0;
    int rounds = 21;
    bool rest = true;
};

options read_options(char **argv)
{
    options given;
    for (char **word = argv + 1; *word; word++) {
        if (strcmp(*word, "--no-rest") == 0)
            given.rest = false;
        else if (strcmp(*word, "--core") == 0 && word[1])
            given.core = atoi(*++word);
        else if (strcmp(*word, "--rounds") == 0 && word[1])
            given.rounds = atoi(*++word);
        else {
            fprintf(stderr, "usage: appident_bench [--core N] [--rounds N] [--no-rest]\n");
            exit(2);
        }
    }
    return given;
}

struct child {
    pid_t process;
    int pipe;
};

// Each measurement runs in a process and a world of its own.
template <typename body> child run_apart(body measure)
{
    int ends[2];
    if (pipe(ends) != 0)
        exit(1);
    fflush(nullptr);
    pid_t process = fork();
    if (process == 0) {
        auto report = measure();
        _exit(write(ends[1], &report, sizeof(report)) == sizeof(report) ? 0 : 1);
    }
    close(ends[1]);
    return {process, ends[0]};
}

template <typename report_type> report_type wait_for(child measured)
{
    report_type report;
    bool whole = read(measured.pipe, &report, sizeof(report)) == sizeof(report);
    close(measured.pipe);
    waitpid(measured.process, nullptr, 0);
    if (!whole)
        exit(1);
    return report;
}

void print_goal(double goal)
{
    goal > 0 ? printf(" %5.2f", goal) : printf(" %5s", "-");
}

void print_costs(const char *name, u32 devices, const turn_costs &costs, double bare_goal, double peer_goal)
{
    printf("%-8s %8u %9.0f %9.0f %9.0f %6.2f", name, devices, costs.bare, costs.turn, costs.peer, costs.turn_to_bare);
    print_goal(bare_goal);
    printf(" %9.2f", costs.turn_to_peer);
    print_goal(peer_goal);
    printf(" %14.2f\n", costs.turn_switches);
}

struct busy_report {
    turn_report turns;
    tick_report ticks;
};

void print_tick(const char *name, u32 devices, const tick_cost &cost)
{
    printf("%-10s %8u %12.0f %16.1f\n", name, devices, cost.microseconds, cost.calls);
}

void measure_busy(const options &given)
{
    constexpr u32 household_sizes[] = {1, 32, 250};
    constexpr double queued_goals[] = {0, 0.65, 0.85}, waited_goals[] = {0, 1.15, 1.35}, peer_goals[] = {0, 1 / 3.0, 0.5};
    busy_report reports[3];
    for (int i = 0; i < 3; i++)
        reports[i] = wait_for<busy_report>(run_apart([&] {
            make_world(household_sizes[i], DAEMON_PATH);
            turn_report turns = measure_turns(household_sizes[i], given.rounds);
            return busy_report{turns, measure_ticks()};
        }));
    printf("A message of %zu bytes, %u apps of each device in use (medians of %d rounds)\n",
           hit(0, first_app, continuing).size(), apps_in_use, given.rounds);
    printf("mode      devices   c in ns   t in ns   p in ns    t/c  goal       t/p  goal   waits/message\n");
    for (int i = 0; i < 3; i++)
        print_costs("queued", reports[i].turns.devices, reports[i].turns.queued, queued_goals[i], peer_goals[i]);
    for (int i = 0; i < 3; i++)
        print_costs("waiting", reports[i].turns.devices, reports[i].turns.waited, waited_goals[i], 0);
    for (const busy_report &report : reports)
        if (report.turns.tracked_of_10000 != 10000 || report.turns.peer_of_10000 != 10000)
            printf("! of 10,000 hits with %u devices only %u were tracked, and only %u decoded by the peer\n",
                   report.turns.devices, report.turns.tracked_of_10000, report.turns.peer_of_10000);
    printf("\nA periodic pass with all these apps in use\npass        devices  microseconds   platform calls\n");
    for (const busy_report &report : reports) {
        print_tick("plain", report.turns.devices, report.ticks.plain);
        print_tick("minute", report.turns.devices, report.ticks.minute);
        print_tick("catalogue", report.turns.devices, report.ticks.catalogue);
    }
}

void measure_at_rest()
{
    constexpr u32 household_sizes[] = {1, 64, 250};
    constexpr unsigned seconds = 60;
    child running[3];
    for (int i = 0; i < 3; i++)
        running[i] = run_apart([&] {
            make_world(household_sizes[i], DAEMON_PATH);
            return measure_rest(household_sizes[i], DAEMON_PATH, seconds);
        });
    printf("\nThe daemon as a process (processor time over %u seconds without traffic)\n", seconds);
    printf(" devices   KB when serving   KB in full use   processor seconds of an idle hour\n");
    for (child &measured : running) {
        resting_report report = wait_for<resting_report>(measured);
        printf("%8u %17.0f %16.0f %35.2f\n", report.devices, report.start_kb, report.full_kb, report.idle_seconds);
    }
}

void print_hit_way(const char *name, const hit_way &way, double goal)
{
    printf("%-9s %16.0f %9.2f %9.2f", name, way.neighbours, way.median_ms, way.p99_ms);
    print_goal(goal);
    printf(" %13.0f\n", way.resident_kb);
    if (way.untold > 0)
        printf("! of these hits %u were not told\n", way.untold);
}

void measure_whole_way()
{
    constexpr u32 devices = 32;
    constexpr double goal_ms = 20;
    hit_way_report report = wait_for<hit_way_report>(run_apart([] {
        make_world(devices, DAEMON_PATH);
        return measure_hit_way(devices, DAEMON_PATH);
    }));
    printf("\nFrom the kernel's message to the push, through the real daemon with %u devices\n", devices);
    printf("          neighbours a s.  p50 in ms p99 in ms  goal   resident KB\n");
    print_hit_way("quiet", report.quiet, 0);
    print_hit_way("churning", report.churning, goal_ms);
}

} // namespace

int main(int, char **argv)
{
    options given = read_options(argv);
    if (!inside_private_network()) {
        fprintf(stderr, "%s\n", enter_private_network(argv, {}).c_str());
        return 1;
    }
    cpu_set_t core;
    CPU_ZERO(&core);
    CPU_SET(given.core, &core);
    if (sched_setaffinity(0, sizeof(core), &core) != 0) {
        perror("the core");
        return 1;
    }
    measure_busy(given);
    measure_whole_way();
    if (given.rest)
        measure_at_rest();
    return 0;
}
