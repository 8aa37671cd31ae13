// household_simulator: plays a household against the real daemon in a network of its own, and checks what it tells.
#include "simulator/player.h"
#include "simulator/predictor.h"
#include "simulator/report.h"
#include "simulator/world/daemon_process.h"
#include "simulator/world/household_files.h"
#include "simulator/world/private_network.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <getopt.h>
#include <stdio.h>
#include <stdlib.h>
#include <thread>

namespace {

enum { exit_equal = 0, exit_different = 1, exit_usage = 2, exit_impossible = 3 };

constexpr const char *usage_text =
    "usage: household_simulator [options] SCENARIO\n"
    "Plays a scenario file against the daemon, tells what happens, and compares it with what the rules say.\n"
    "  --speed N       run the household's clock N times as fast (60)\n"
    "                  (less when this machine wakes up too late for that)\n"
    "  --keep          keep the daemon after the table, until Enter is pressed\n"
    "  --daemon PATH   the daemon to play against\n"
    "  --predict       only print what the rules say\n"
    "  --help          this text\n"
    "Exit status: 0 all as the rules say, 1 something differs, 2 usage, 3 not possible on this machine.\n";

struct options {
    int speed = 60;
    std::string daemon = DAEMON_PATH;
    bool predict_only = false;
    bool keep = false;
    std::string scenario_path;
};

// 0 to go on, otherwise the exit status plus one.
int read_options(int argc, char **argv, options *out)
{
    static const option known[] = {{"speed", required_argument, nullptr, 's'},  {"keep", no_argument, nullptr, 'k'},
                                   {"daemon", required_argument, nullptr, 'd'}, {"predict", no_argument, nullptr, 'p'},
                                   {"help", no_argument, nullptr, 'h'},         {nullptr, 0, nullptr, 0}};
    for (int letter; (letter = getopt_long(argc, argv, "s:kd:ph", known, nullptr)) != -1;) {
        if (letter == 's')
            out->speed = atoi(optarg);
        else if (letter == 'k')
            out->keep = true;
        else if (letter == 'd')
            out->daemon = optarg;
        else if (letter == 'p')
            out->predict_only = true;
        else {
            fputs(usage_text, letter == 'h' ? stdout : stderr);
            return letter == 'h' ? exit_equal + 1 : exit_usage + 1;
        }
    }
    if (optind + 1 != argc || out->speed < 1) {
        fputs(usage_text, stderr);
        return exit_usage + 1;
    }
    out->scenario_path = argv[optind];
    return 0;
}

// How many times as fast as life this machine can play: events are to be at most some seconds of the household late.
int bearable_speed()
{
    using namespace std::chrono;
    constexpr int tries = 100, late_at_most_seconds = 10, reserve = 4;
    constexpr int least = 60, most = 600;
    auto worst = milliseconds(0);
    for (int i = 0; i < tries; i++) {
        auto begun = steady_clock::now();
        std::this_thread::sleep_for(milliseconds(1));
        worst = std::max(worst, duration_cast<milliseconds>(steady_clock::now() - begun));
    }
    return std::clamp(late_at_most_seconds * 1000 / (reserve * std::max(static_cast<int>(worst.count()), 1)), least, most);
}

// The wanted speed or what is bearable, decided once for this program and what it replaces itself by.
int speed_to_play(int wanted)
{
    constexpr const char *decided = "HOUSEHOLD_SPEED";
    if (const char *speed = getenv(decided))
        return atoi(speed);
    int speed = std::min(wanted, bearable_speed());
    if (speed < wanted)
        fprintf(stderr, "This machine can play %d times as fast as life now, not %d times.\n", speed, wanted);
    setenv(decided, std::to_string(speed).c_str(), 1);
    return speed;
}

int play_inside(const scenario &household, const std::vector<step> &plan, const std::vector<outcome> &predicted,
                const options &chosen)
{
    std::string self = std::filesystem::read_symlink("/proc/self/exe").string();
    if (!make_private_tmp({self, chosen.daemon}) || !make_lan("192.168.77.1/24") || !settle_neighbours(household.devices) ||
        !write_settings() || !write_roster(household.devices) || !write_catalogue(household.apps, household.start))
        return exit_impossible;
    printf("%s: %zu devices, %s to %s, %d times as fast as life\n\n", household.title.c_str(), household.devices.size(),
           clock_text(household.start).c_str(), clock_text(household.end).c_str(), chosen.speed);
    pid_t daemon = start_daemon(chosen.daemon);
    if (daemon < 0)
        return exit_impossible;
    played result = play(household, plan, daemon);
    bool equal = compare(household, predicted, result.seen);
    if (chosen.keep) {
        printf("The daemon goes on until you press Enter.\n");
        fflush(stdout);
        getchar();
    }
    int status = stop_daemon(daemon);
    if (!result.complete)
        printf("The daemon did not serve all the time.\n");
    if (result.unreadable > 0)
        printf("%u pushes made no sense.\n", result.unreadable);
    if (status != status_after_sigterm)
        printf("The daemon ended with status %d.\n", status);
    bool good = equal && result.complete && result.unreadable == 0 && status == status_after_sigterm;
    printf("%s\n", good ? "All as the rules say." : "NOT as the rules say.");
    return good ? exit_equal : exit_different;
}

} // namespace

int main(int argc, char **argv)
{
    options chosen;
    if (int status = read_options(argc, argv, &chosen); status != 0)
        return status - 1;
    scenario household;
    if (!read_scenario(chosen.scenario_path, &household))
        return exit_usage;
    std::vector<step> plan = plan_of(household);
    std::vector<outcome> predicted = predict(household, plan, 0);
    constexpr int tolerated_seconds = 10;
    if (!same_outcomes(predicted, predict(household, plan, tolerated_seconds))) {
        fprintf(stderr, "%s: what it brings hangs on seconds; leave more room around full minutes\n",
                chosen.scenario_path.c_str());
        return exit_usage;
    }
    if (chosen.predict_only) {
        for (const outcome &one : predicted)
            tell_outcome(household, one);
        return exit_equal;
    }
    chosen.speed = speed_to_play(chosen.speed);
    if (inside_private_network())
        return play_inside(household, plan, predicted, chosen);
    setenv("TZ", "UTC", 1);
    std::string trouble = enter_private_network(argv, fast_clock_words(household.start, chosen.speed));
    fprintf(stderr, "%s\n", trouble.c_str());
    return exit_impossible;
}
